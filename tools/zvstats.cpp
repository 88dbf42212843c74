// zvstats: a small host program. It loads libzvstatsbuiltins.so with dlopen,
// as the real host does, lists its gateways and runs a demo of them.
#include <cstdio>
#include <cstring>
#include <string>

#include "demo/demo.hpp"
#include "frame/gateway_list.hpp"

namespace {

using zv::frame::kGateways;

int list(const zvhost::BuiltinsLibrary& library) {
    int implemented = 0;
    for (const auto& g : kGateways) {
        const bool exported = library.find(g.name) != nullptr;
        implemented += g.implemented;
        std::printf("%-40s %s%s\n", g.name, g.implemented ? "implemented" : "not yet",
                    g.implemented != exported ? "  (export list disagrees!)" : "");
    }
    std::printf("%d of %zu gateways implemented\n", implemented, std::size(kGateways));
    return 0;
}

int demo(const zvhost::BuiltinsLibrary& library) {
    zvdemo::Session session(library);
    std::printf("zvstats demo: the builtins on embedded default data\n");
    zvdemo::runSections(session);
    return 0;
}

void usage() {
    std::fprintf(stderr,
                 "usage: zvstats [--library PATH] list | demo\n"
                 "  list   the gateways and whether each is implemented\n"
                 "  demo   run the implemented gateways on embedded data\n");
}

}  // namespace

int main(int argc, char** argv) {
    std::string path = zvhost::defaultLibraryPath();
    int arg = 1;
    if (arg + 1 < argc && std::strcmp(argv[arg], "--library") == 0) {
        path = argv[arg + 1];
        arg += 2;
    }
    if (arg >= argc) {
        usage();
        return 2;
    }
    try {
        zvhost::BuiltinsLibrary library(path);
        library.initialize();
        int rc = 2;
        if (std::strcmp(argv[arg], "list") == 0) rc = list(library);
        else if (std::strcmp(argv[arg], "demo") == 0) rc = demo(library);
        else usage();
        library.terminate();
        return rc;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "zvstats: %s\n", e.what());
        return 1;
    }
}
