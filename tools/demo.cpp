#include "tools/commands.h"
int kplvc_tool::demo(int, char**) { return 0; }
