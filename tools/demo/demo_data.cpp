// Shared demo data and printing.
#include <algorithm>
#include <cstdio>

#include "demo/demo.hpp"

namespace zvdemo {

std::vector<zvhost::Owned> Session::call(const char* gateway, int numOutputs,
                                         std::initializer_list<const ndArray*> inputs) const {
    zvhost::Gateway f = library_.find(gateway);
    if (!f) throw std::runtime_error(std::string("gateway not exported: ") + gateway);
    return zvhost::call(f, numOutputs, inputs);
}

Blobs gaussianBlobs(size_t perBlob, const std::vector<std::vector<double>>& centres, double spread,
                    unsigned seed) {
    Blobs b;
    b.dims = centres.empty() ? 0 : centres[0].size();
    b.n = perBlob * centres.size();
    b.x.resize(b.dims * b.n);
    auto stream = zvhost::makeStream(seed);
    std::vector<double> noise(b.x.size());
    stream->normal(noise.data(), noise.size());
    for (size_t c = 0; c < centres.size(); ++c)
        for (size_t i = 0; i < perBlob; ++i) {
            size_t j = c * perBlob + i;
            b.label.push_back(int(c));
            for (size_t k = 0; k < b.dims; ++k) b.x[j * b.dims + k] = centres[c][k] + spread * noise[j * b.dims + k];
        }
    return b;
}

void printMatrix(const char* title, const double* a, size_t m, size_t n, int width, int precision) {
    std::printf("%s (%zu x %zu)\n", title, m, n);
    for (size_t i = 0; i < m; ++i) {
        std::printf("  ");
        for (size_t j = 0; j < n; ++j) std::printf(" %*.*f", width, precision, a[i + j * m]);
        std::printf("\n");
    }
}

void heading(const char* title) { std::printf("\n=== %s ===\n", title); }

namespace {

struct Section {
    int order;
    const char* name;
    SectionFn run;
};

std::vector<Section>& sections() {
    static std::vector<Section> all;
    return all;
}

}  // namespace

SectionRegistrar::SectionRegistrar(int order, const char* name, SectionFn run) {
    sections().push_back({order, name, run});
}

void runSections(const Session& s) {
    auto& all = sections();
    std::stable_sort(all.begin(), all.end(), [](const Section& a, const Section& b) { return a.order < b.order; });
    for (const Section& section : all) section.run(s);
}

}  // namespace zvdemo
