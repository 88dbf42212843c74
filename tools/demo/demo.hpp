// The demo sections of `zvstats demo`, one per subsystem, and what they share.
#pragma once

#include <string>
#include <vector>

#include "zvhost/arrays.hpp"

namespace zvdemo {

// The loaded library, for calls by gateway name.
class Session {
public:
    explicit Session(const zvhost::BuiltinsLibrary& library) : library_(library) {}
    std::vector<zvhost::Owned> call(const char* gateway, int numOutputs,
                                    std::initializer_list<const ndArray*> inputs) const;
    bool has(const char* gateway) const { return library_.find(gateway) != nullptr; }

private:
    const zvhost::BuiltinsLibrary& library_;
};

// Deterministic Gaussian blobs from a seeded host stream: `perBlob` points
// around each centre, in `dims` coordinates, stored p-by-n (one observation
// per column), with their blob labels.
struct Blobs {
    size_t dims = 0, n = 0;
    std::vector<double> x;
    std::vector<int> label;
};
Blobs gaussianBlobs(size_t perBlob, const std::vector<std::vector<double>>& centres, double spread,
                    unsigned seed);

void printMatrix(const char* title, const double* a, size_t m, size_t n, int width = 9, int precision = 4);
void heading(const char* title);

// A demo section registers itself at static initialisation; sections run in
// ascending `order` (subsystem number times 10, then position), so adding one
// touches no shared file.
using SectionFn = void (*)(const Session&);
struct SectionRegistrar {
    SectionRegistrar(int order, const char* name, SectionFn run);
};
void runSections(const Session& s);

#define ZV_DEMO_SECTION(order, fn) \
    static const ::zvdemo::SectionRegistrar zvDemoSection_##fn(order, #fn, fn)

}  // namespace zvdemo
