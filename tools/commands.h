// The `kplvc` tool's commands; each takes the arguments after its name.
#pragma once

namespace kplvc_tool {
int info(int argc, char** argv);
int decode(int argc, char** argv);
int compare(int argc, char** argv);
int encode(int argc, char** argv);
int demo(int argc, char** argv);
}  // namespace kplvc_tool
