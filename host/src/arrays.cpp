// Host arrays: creation, reading, destruction, shared copies and sizes.
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>

#include <sys/mman.h>

#include "internal.hpp"

using zvhost::detail::raise;

namespace {

constexpr double kMaxBytes = 281474976710655.0;  // 2^48 - 1
constexpr size_t kMappedThreshold = size_t(4) << 20;

struct ClassInfo {
    ndClassID id;
    const char* name;
    size_t bytes;
};
constexpr ClassInfo kClasses[] = {
    {ndCELL_CLASS, "cell", sizeof(ndArray*)}, {ndLOGICAL_CLASS, "logical", 1},
    {ndCHAR_CLASS, "char", 2},               {ndDOUBLE_CLASS, "double", 8},
    {ndSINGLE_CLASS, "single", 4},           {ndINT8_CLASS, "int8", 1},
    {ndUINT8_CLASS, "uint8", 1},             {ndINT16_CLASS, "int16", 2},
    {ndUINT16_CLASS, "uint16", 2},           {ndINT32_CLASS, "int32", 4},
    {ndUINT32_CLASS, "uint32", 4},           {ndINT64_CLASS, "int64", 8},
    {ndUINT64_CLASS, "uint64", 8},           {ndFUNCTION_CLASS, "function_handle", 0},
};

const ClassInfo* findClass(ndClassID id) {
    for (const auto& c : kClasses)
        if (c.id == id) return &c;
    return nullptr;
}

size_t product(const std::vector<size_t>& dims) {
    size_t p = 1;
    for (size_t d : dims) p *= d;
    return p;
}

// Allocates zeroed element storage for `count` elements of `bytes` each.
std::shared_ptr<ArrayStorage> makeStorage(size_t count, size_t bytes, bool isCell) {
    if (zvhost::detail::allocationShouldFail(zvhost::kArrays)) throw bedrock::core::except::bad_alloc();
    double total = double(count) * double(bytes);
    if (total > kMaxBytes) raise("zvhost:ArrayTooLarge");
    size_t n = count * bytes;
    if (zvhost::detail::beyondRequestLimit(n)) throw bedrock::core::except::bad_alloc();
    auto s = std::make_shared<ArrayStorage>();
    if (n >= kMappedThreshold) {
        // Large arrays come zeroed from the kernel, in huge pages where it
        // allows, so that filling them costs a few hundred faults, not 10^5.
        void* p = mmap(nullptr, n, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (p == MAP_FAILED) throw bedrock::core::except::bad_alloc();
        madvise(p, n, MADV_HUGEPAGE);
        s->data = p;
        s->mappedBytes = n;
    } else if (n > 0) {
        s->data = std::calloc(n, 1);
        if (!s->data) throw bedrock::core::except::bad_alloc();
    }
    s->isCell = isCell;
    s->cellCount = isCell ? count : 0;
    return s;
}

ndArray* newArray(ndClassID cls, std::vector<size_t> dims, ndComplexity c) {
    const ClassInfo* info = findClass(cls);
    if (!info || cls == ndFUNCTION_CLASS) raise("zvhost:BadClass", {long(cls)});
    while (dims.size() < 2) dims.push_back(dims.empty() ? 0 : 1);
    size_t count = product(dims);
    size_t bytes = info->bytes * (c == ndCOMPLEX ? 2 : 1);
    auto storage = makeStorage(count, bytes, cls == ndCELL_CLASS);
    auto* a = new ndArray;
    a->cls = cls;
    a->className = info->name;
    a->dims = std::move(dims);
    a->complex = c == ndCOMPLEX;
    a->storage = std::move(storage);
    zvhost::detail::noteArrayCreated();
    return a;
}

template <class T>
double firstAs(const void* p) {
    return double(*static_cast<const T*>(p));
}

}  // namespace

ArrayStorage::~ArrayStorage() {
    if (isCell && data) {
        auto** cells = static_cast<ndArray**>(data);
        for (size_t i = 0; i < cellCount; ++i)
            if (cells[i]) ndDestroyArray(cells[i]);
    }
    release();
}

void ArrayStorage::release() {
    if (mappedBytes) munmap(data, mappedBytes);
    else std::free(data);
    data = nullptr;
    mappedBytes = 0;
}

// ---- reading ---------------------------------------------------------------
ndClassID ndGetClassID(const ndArray* a) { return a->cls; }
size_t ndGetM(const ndArray* a) { return a->dims[0]; }
size_t ndGetN(const ndArray* a) {
    size_t n = 1;
    for (size_t k = 1; k < a->dims.size(); ++k) n *= a->dims[k];
    return n;
}
size_t ndGetNumberOfDimensions(const ndArray* a) { return a->dims.size(); }
const size_t* ndGetDimensions(const ndArray* a) { return a->dims.data(); }
size_t ndGetNumberOfElements(const ndArray* a) { return product(a->dims); }
bool ndIsEmpty(const ndArray* a) { return ndGetNumberOfElements(a) == 0; }
bool ndIsScalar(const ndArray* a) { return ndGetNumberOfElements(a) == 1; }
bool ndIsVector(const ndArray* a) {
    return a->dims.size() == 2 && (a->dims[0] == 1 || a->dims[1] == 1);
}
bool ndIsSparse(const ndArray* a) { return a->sparse; }
bool ndIsComplex(const ndArray* a) { return a->complex; }
bool ndIsNumeric(const ndArray* a) {
    switch (a->cls) {
    case ndDOUBLE_CLASS: case ndSINGLE_CLASS: case ndINT8_CLASS: case ndUINT8_CLASS:
    case ndINT16_CLASS: case ndUINT16_CLASS: case ndINT32_CLASS: case ndUINT32_CLASS:
    case ndINT64_CLASS: case ndUINT64_CLASS:
        return true;
    default:
        return false;
    }
}
bool ndIsClass(const ndArray* a, const char* name) { return a->className == name; }
bool ndIsLogicalScalarTrue(const ndArray* a) {
    return a->cls == ndLOGICAL_CLASS && ndIsScalar(a) &&
           *static_cast<const unsigned char*>(a->storage->data) != 0;
}
void* ndGetData(const ndArray* a) { return a->storage ? a->storage->data : nullptr; }
size_t* ndGetRowIndices(const ndArray* a) {
    return const_cast<size_t*>(a->rowIndices.data());
}
size_t* ndGetColumnStarts(const ndArray* a) {
    return const_cast<size_t*>(a->columnStarts.data());
}
ndArray* ndGetCell(const ndArray* a, size_t i) {
    if (a->cls != ndCELL_CLASS || i >= ndGetNumberOfElements(a)) raise("zvhost:BadCellIndex");
    return static_cast<ndArray**>(a->storage->data)[i];
}
bool* ndGetLogicals(const ndArray* a) { return static_cast<bool*>(ndGetData(a)); }

double ndGetScalar(const ndArray* a) {
    if (ndIsEmpty(a) || !a->storage || !a->storage->data) return 0.0;
    const void* p = a->storage->data;
    switch (a->cls) {
    case ndDOUBLE_CLASS: return firstAs<double>(p);
    case ndSINGLE_CLASS: return firstAs<float>(p);
    case ndLOGICAL_CLASS: return firstAs<unsigned char>(p) != 0 ? 1.0 : 0.0;
    case ndCHAR_CLASS: return firstAs<char16_t>(p);
    case ndINT8_CLASS: return firstAs<int8_t>(p);
    case ndUINT8_CLASS: return firstAs<uint8_t>(p);
    case ndINT16_CLASS: return firstAs<int16_t>(p);
    case ndUINT16_CLASS: return firstAs<uint16_t>(p);
    case ndINT32_CLASS: return firstAs<int32_t>(p);
    case ndUINT32_CLASS: return firstAs<uint32_t>(p);
    case ndINT64_CLASS: return firstAs<int64_t>(p);
    case ndUINT64_CLASS: return firstAs<uint64_t>(p);
    default: raise("zvhost:NotNumeric");
    }
}

int ndGetString(const ndArray* a, char* buf, size_t n) {
    if (n == 0) return 1;
    buf[0] = '\0';
    if (a->cls != ndCHAR_CLASS) return 1;
    size_t count = ndGetNumberOfElements(a);
    const auto* text = static_cast<const char16_t*>(ndGetData(a));
    size_t k = 0;
    for (; k < count && k + 1 < n; ++k) buf[k] = text[k] < 128 ? char(text[k]) : '?';
    buf[k] = '\0';
    return k < count ? 1 : 0;
}

size_t ndCalcSingleSubscript(const ndArray* a, size_t nsubs, const size_t* subs) {
    size_t index = 0, stride = 1;
    for (size_t k = 0; k < nsubs; ++k) {
        index += subs[k] * stride;
        stride *= k < a->dims.size() ? a->dims[k] : 1;
    }
    return index;
}

bool ndIsNaN(double x) { return std::isnan(x); }
double ndGetEps() { return std::numeric_limits<double>::epsilon(); }
double ndGetInf() { return std::numeric_limits<double>::infinity(); }
double ndGetNaN() { return std::numeric_limits<double>::quiet_NaN(); }

// ---- creating and destroying ----------------------------------------------
ndArray* ndCreateNumericMatrix(size_t m, size_t n, ndClassID cls, ndComplexity c) {
    return newArray(cls, {m, n}, c);
}
ndArray* ndCreateNumericArray(size_t ndim, const size_t* dims, ndClassID cls, ndComplexity c) {
    return newArray(cls, std::vector<size_t>(dims, dims + ndim), c);
}
ndArray* ndCreateDoubleMatrix(size_t m, size_t n, ndComplexity c) {
    return newArray(ndDOUBLE_CLASS, {m, n}, c);
}
ndArray* ndCreateLogicalMatrix(size_t m, size_t n) { return newArray(ndLOGICAL_CLASS, {m, n}, ndREAL); }
ndArray* ndCreateDoubleScalar(double x) {
    ndArray* a = newArray(ndDOUBLE_CLASS, {1, 1}, ndREAL);
    *static_cast<double*>(a->storage->data) = x;
    return a;
}
ndArray* ndCreateSingleScalar(float x) {
    ndArray* a = newArray(ndSINGLE_CLASS, {1, 1}, ndREAL);
    *static_cast<float*>(a->storage->data) = x;
    return a;
}
ndArray* ndCreateCellMatrix(size_t m, size_t n) { return newArray(ndCELL_CLASS, {m, n}, ndREAL); }
ndArray* ndCreateCharArray(size_t ndim, const size_t* dims) {
    return newArray(ndCHAR_CLASS, std::vector<size_t>(dims, dims + ndim), ndREAL);
}
ndArray* ndCreateString(const char* text) { return zvhost::createCharRow(zvhost::detail::fromUtf8(text)); }

ndArray* ndDuplicateArray(const ndArray* a) {
    if (zvhost::detail::allocationShouldFail(zvhost::kArrays)) throw bedrock::core::except::bad_alloc();
    auto* copy = new ndArray(*a);
    zvhost::detail::noteArrayCreated();
    if (a->storage) {
        size_t count = ndGetNumberOfElements(a);
        if (a->sparse) count = a->columnStarts.empty() ? 0 : a->columnStarts.back();
        size_t bytes = zvhost::elementSize(a->cls) * (a->complex ? 2 : 1);
        auto s = std::make_shared<ArrayStorage>();
        if (count * bytes > 0) {
            s->data = std::malloc(count * bytes);
            if (!s->data) {
                copy->storage.reset();
                ndDestroyArray(copy);
                throw bedrock::core::except::bad_alloc();
            }
            std::memcpy(s->data, a->storage->data, count * bytes);
        }
        if (a->cls == ndCELL_CLASS) {
            s->isCell = true;
            s->cellCount = count;
            auto** cells = static_cast<ndArray**>(s->data);
            for (size_t i = 0; i < count; ++i) cells[i] = cells[i] ? ndDuplicateArray(cells[i]) : nullptr;
        }
        copy->storage = std::move(s);
    }
    return copy;
}

void ndDestroyArray(ndArray* a) {
    if (!a) return;
    delete a;
    zvhost::detail::noteArrayDestroyed();
}

void ndSetCell(ndArray* c, size_t i, ndArray* e) {
    if (c->cls != ndCELL_CLASS || i >= ndGetNumberOfElements(c)) raise("zvhost:BadCellIndex");
    auto** cells = static_cast<ndArray**>(c->storage->data);
    if (cells[i]) ndDestroyArray(cells[i]);
    cells[i] = e;
}

void ndSetData(ndArray* a, void* p) {
    zvhost::detail::releaseScratchOwnership(p);
    if (a->storage && a->storage.use_count() == 1 && !a->storage->isCell) {
        a->storage->release();
        a->storage->data = p;
    } else {
        auto s = std::make_shared<ArrayStorage>();
        s->data = p;
        a->storage = std::move(s);
    }
}
void ndSetPr(ndArray* a, double* p) { ndSetData(a, p); }
void ndSetM(ndArray* a, size_t m) { a->dims[0] = m; }
void ndSetN(ndArray* a, size_t n) {
    a->dims.resize(2);
    a->dims[1] = n;
}
void ndSetArrayScope(ndArray* a, int scope) { a->scope = scope; }

// ---- sizes -----------------------------------------------------------------
namespace {
size_t sizeFromDouble(double v) {
    if (std::isnan(v) || std::isinf(v) || v != std::floor(v)) raise("zvhost:NonIntegerSize");
    if (v < 0) return 0;  // negative sizes count as 0, as the host's constructors do
    if (v > kMaxBytes) raise("zvhost:ArrayTooLarge");
    return size_t(v);
}
double elementAsDouble(const ndArray* a, size_t i) {
    const void* p = ndGetData(a);
    switch (a->cls) {
    case ndDOUBLE_CLASS: return static_cast<const double*>(p)[i];
    case ndSINGLE_CLASS: return static_cast<const float*>(p)[i];
    case ndLOGICAL_CLASS: return static_cast<const unsigned char*>(p)[i] ? 1.0 : 0.0;
    case ndINT8_CLASS: return static_cast<const int8_t*>(p)[i];
    case ndUINT8_CLASS: return static_cast<const uint8_t*>(p)[i];
    case ndINT16_CLASS: return static_cast<const int16_t*>(p)[i];
    case ndUINT16_CLASS: return static_cast<const uint16_t*>(p)[i];
    case ndINT32_CLASS: return static_cast<const int32_t*>(p)[i];
    case ndUINT32_CLASS: return static_cast<const uint32_t*>(p)[i];
    case ndINT64_CLASS: return double(static_cast<const int64_t*>(p)[i]);
    case ndUINT64_CLASS: return double(static_cast<const uint64_t*>(p)[i]);
    default: raise("zvhost:NonNumericSize");
    }
}
}  // namespace

size_t ndGetDims(int count, const ndArray* const* args, size_t* dims, size_t* ndim) {
    size_t total = 1;
    if (count == 1) {
        const ndArray* v = args[0];
        size_t n = ndGetNumberOfElements(v);
        if (n == 0) raise("zvhost:EmptySize");
        for (size_t k = 0; k < n; ++k) {
            dims[k] = sizeFromDouble(elementAsDouble(v, k));
            total *= dims[k];
        }
        if (n == 1) {  // a single scalar size means n-by-n
            dims[1] = dims[0];
            total *= dims[0];
            n = 2;
        }
        *ndim = n;
        return total;
    }
    for (int k = 0; k < count; ++k) {
        if (ndGetNumberOfElements(args[k]) != 1) raise("zvhost:NonScalarSize");
        dims[k] = sizeFromDouble(elementAsDouble(args[k], 0));
        total *= dims[k];
    }
    *ndim = size_t(count);
    return total;
}

void ndCheckDim(const size_t* dims, size_t ndim, size_t elementBytes) {
    double total = double(elementBytes);
    for (size_t k = 0; k < ndim; ++k) total *= double(dims[k]);
    if (total > kMaxBytes) raise("zvhost:ArrayTooLarge");
}

// ---- owning handles ----------------------------------------------------------
std::string matrix::get_string(const ndArray* a) {
    if (a->cls != ndCHAR_CLASS) raise("zvhost:NotText");
    return zvhost::detail::toUtf8(zvhost::charData(a));
}

matrix::unique_nd_ptr matrix::detail::do_create_numeric(std::span<const size_t> dims,
                                                        ndClassID cls, ndComplexity c) {
    return unique_nd_ptr(newArray(cls, std::vector<size_t>(dims.begin(), dims.end()), c));
}
matrix::unique_nd_ptr matrix::detail::do_create_cell(std::span<const size_t> dims) {
    return unique_nd_ptr(newArray(ndCELL_CLASS, std::vector<size_t>(dims.begin(), dims.end()), ndREAL));
}
matrix::unique_nd_ptr matrix::detail::do_shared_copy(const ndArray* a) {
    if (zvhost::detail::allocationShouldFail(zvhost::kArrays)) throw bedrock::core::except::bad_alloc();
    auto* copy = new ndArray(*a);  // shares the storage pointer
    zvhost::detail::noteArrayCreated();
    return unique_nd_ptr(copy);
}

// ---- the control API's constructors ----------------------------------------
namespace zvhost {

size_t elementSize(ndClassID cls) {
    const ClassInfo* info = findClass(cls);
    return info ? info->bytes : 0;
}

ndArray* createCharRow(const std::u16string& text) {
    size_t dims[2] = {1, text.size()};
    ndArray* a = ndCreateCharArray(2, dims);
    if (!text.empty()) std::memcpy(ndGetData(a), text.data(), text.size() * 2);
    return a;
}

std::u16string charData(const ndArray* a) {
    if (a->cls != ndCHAR_CLASS) return {};
    const auto* p = static_cast<const char16_t*>(ndGetData(a));
    return std::u16string(p, p + ndGetNumberOfElements(a));
}

ndArray* createSparse(size_t m, size_t n, size_t nnz) {
    ndArray* a = newArray(ndDOUBLE_CLASS, {0, 0}, ndREAL);
    a->dims = {m, n};
    a->sparse = true;
    a->storage = makeStorage(nnz, sizeof(double), false);
    a->rowIndices.assign(nnz, 0);
    a->columnStarts.assign(n + 1, 0);
    return a;
}

ndArray* createComplexMatrix(size_t m, size_t n) { return newArray(ndDOUBLE_CLASS, {m, n}, ndCOMPLEX); }

// Objects and function handles are 1-by-1 but hold no numbers: ndGetData
// gives null, as nothing of theirs may be read as data.
ndArray* createHostObject(const std::string& name) {
    ndArray* a = newArray(ndDOUBLE_CLASS, {1, 1}, ndREAL);
    a->storage.reset();
    a->cls = ndOBJECT_CLASS;
    a->className = name;
    return a;
}

ndArray* createStringObject(const std::u16string& text) {
    ndArray* a = createHostObject("string");
    a->object = std::make_shared<std::u16string>(text);
    return a;
}

ndArray* createFunctionHandle(const std::string& name) {
    ndArray* a = newArray(ndDOUBLE_CLASS, {1, 1}, ndREAL);
    a->storage.reset();
    a->cls = ndFUNCTION_CLASS;
    a->className = "function_handle";
    a->functionName = name;
    return a;
}

std::string functionHandleName(const ndArray* a) { return a->functionName; }

ndArray* createStreamObject(std::shared_ptr<RandStream> stream) {
    ndArray* a = createHostObject("RandStream");
    a->object = std::move(stream);
    return a;
}

std::string className(const ndArray* a) { return a->className; }

}  // namespace zvhost
