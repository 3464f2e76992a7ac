// The shared object exports exactly the functions the public header declares.
#include <cctype>
#include <cstdio>
#include <fstream>
#include <set>
#include <sstream>
#include <string>

#include "support/support.h"

namespace {

std::set<std::string> header_functions() {
    std::ifstream in(std::string(KPLVC_SOURCE_DIR) + "/include/kplvc.h");
    std::stringstream ss;
    ss << in.rdbuf();
    const std::string text = ss.str();
    std::set<std::string> names;
    // A declaration: KPLVC_API <return type> name( -- the name is the
    // identifier right before the first parenthesis after the macro.
    const std::string macro = "KPLVC_API";
    for (size_t at = text.find(macro); at != std::string::npos; at = text.find(macro, at + macro.size())) {
        const size_t paren = text.find('(', at);
        if (paren == std::string::npos) break;
        size_t end = paren;
        while (end > at && std::isspace(static_cast<unsigned char>(text[end - 1]))) --end;
        size_t begin = end;
        while (begin > at &&
               (std::isalnum(static_cast<unsigned char>(text[begin - 1])) || text[begin - 1] == '_'))
            --begin;
        const std::string name = text.substr(begin, end - begin);
        if (name.rfind("kpl", 0) == 0) names.insert(name);
    }
    return names;
}

std::set<std::string> exported_functions(const std::string& lib) {
    std::set<std::string> names;
    const std::string cmd = "nm -D --defined-only '" + lib + "'";
    FILE* p = popen(cmd.c_str(), "r");
    if (p == nullptr) return names;
    char line[1024];
    while (std::fgets(line, sizeof line, p)) {
        std::istringstream ls(line);
        std::string addr, type, name;
        if (!(ls >> addr >> type >> name)) continue;
        names.insert(name);
    }
    pclose(p);
    return names;
}

}  // namespace

TEST(Exports, SharedObjectExportsExactlyTheHeader) {
    const auto declared = header_functions();
    const auto exported = exported_functions(KPLVC_SHARED_LIB);
    ASSERT_FALSE(declared.empty());
    ASSERT_FALSE(exported.empty()) << "nm found nothing in " << KPLVC_SHARED_LIB;
    for (const auto& n : declared) EXPECT_TRUE(exported.count(n)) << "declared, not exported: " << n;
    for (const auto& n : exported) EXPECT_TRUE(declared.count(n)) << "exported, not declared: " << n;
}

TEST(Exports, LinkNameExists) {
    const std::string link = KPLVC_SHARED_LINK;
    EXPECT_NE(link.find("libkplvca6.so"), std::string::npos);
    EXPECT_EQ(link.substr(link.size() - 3), ".so");
    std::ifstream f(link);
    EXPECT_TRUE(f.good()) << link;
}
