// The shared library exports exactly the implemented gateways and the two
// module functions, and each of them can be found by its C++ name.
#include <gtest/gtest.h>

#include <cstdio>
#include <set>
#include <string>

#include "zvhost/control.hpp"
#include "frame/gateway_list.hpp"

namespace {

using zv::frame::kGateways;

std::set<std::string> dynamicSymbols(const std::string& path) {
    std::set<std::string> names;
    FILE* pipe = popen(("nm -D --defined-only " + path).c_str(), "r");
    if (!pipe) return names;
    char line[4096];
    while (std::fgets(line, sizeof line, pipe)) {
        std::string s(line);
        s.erase(s.find_last_not_of("\r\n") + 1);
        names.insert(s.substr(s.rfind(' ') + 1));
    }
    pclose(pipe);
    return names;
}

TEST(Exports, ExactlyTheImplementedGatewaysAndModuleFunctions) {
    EXPECT_EQ(std::size(kGateways), 63u);
    std::set<std::string> expected{"ModInitialize_libzvstatsbuiltins", "ModTerminate_libzvstatsbuiltins"};
    for (const auto& g : kGateways)
        if (g.implemented) expected.insert(zvhost::mangledGatewayName(g.name));
    EXPECT_EQ(dynamicSymbols(ZV_BUILTINS_PATH), expected);
}

TEST(Exports, GatewaysAreFoundByNameThroughDlopen) {
    zvhost::BuiltinsLibrary library(ZV_BUILTINS_PATH);
    library.initialize();
    for (const auto& g : kGateways) EXPECT_EQ(library.find(g.name) != nullptr, g.implemented) << g.name;
    library.terminate();
    library.terminate();  // terminating twice, or without initialising, does nothing
}

TEST(Exports, NamespacedNamesMangleLikeTheCompiler) {
    EXPECT_EQ(zvhost::mangledGatewayName("pdistbif"), "_Z8pdistbifiPP7ndArrayiPPKS_");
    EXPECT_EQ(zvhost::mangledGatewayName("classregtree::growTree"),
              "_ZN12classregtree8growTreeEiPP7ndArrayiPPKS0_");
    EXPECT_EQ(zvhost::mangledGatewayName("a::b::f"), "_ZN1a1b1fEiPP7ndArrayiPPKS1_");
}

}  // namespace
