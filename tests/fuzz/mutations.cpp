// Mutations of a valid call, built only through the host's array interface.
#include "fuzz/mutations.hpp"

#include <cmath>
#include <cstring>
#include <limits>

namespace zvfuzz {

namespace {

using Rng = std::mt19937_64;

size_t pick(Rng& rng, size_t n) { return std::uniform_int_distribution<size_t>(0, n - 1)(rng); }

template <class T>
const T& pickFrom(Rng& rng, std::initializer_list<T> list) {
    return *(list.begin() + pick(rng, list.size()));
}

const double kSpecialValues[] = {
    std::numeric_limits<double>::quiet_NaN(), INFINITY, -INFINITY, -1, 0, -0.0, 0.5, 1, 2, 3, 1e7,
    2147483648.0, 4294967297.0, 9007199254740993.0, 9223372036854775808.0, 18446744073709551616.0, 1e12,
    1e300, -1e300, 4.9e-324, std::numeric_limits<double>::max()};

bool holdsNumbers(const ndArray* a) {
    switch (ndGetClassID(a)) {
    case ndDOUBLE_CLASS: case ndSINGLE_CLASS: case ndLOGICAL_CLASS: case ndCHAR_CLASS: case ndINT8_CLASS:
    case ndUINT8_CLASS: case ndINT16_CLASS: case ndUINT16_CLASS: case ndINT32_CLASS: case ndUINT32_CLASS:
    case ndINT64_CLASS: case ndUINT64_CLASS:
        return ndGetData(a) != nullptr || ndIsEmpty(a);
    default:
        return false;
    }
}

// Element k of a dense numeric array as a double (the real part).
double valueAt(const ndArray* a, size_t k) {
    const void* p = ndGetData(a);
    const size_t at = ndIsComplex(a) ? 2 * k : k;
    switch (ndGetClassID(a)) {
    case ndDOUBLE_CLASS: return static_cast<const double*>(p)[at];
    case ndSINGLE_CLASS: return static_cast<const float*>(p)[at];
    case ndLOGICAL_CLASS: return static_cast<const uint8_t*>(p)[at];
    case ndCHAR_CLASS: return static_cast<const char16_t*>(p)[at];
    case ndINT8_CLASS: return static_cast<const int8_t*>(p)[at];
    case ndUINT8_CLASS: return static_cast<const uint8_t*>(p)[at];
    case ndINT16_CLASS: return static_cast<const int16_t*>(p)[at];
    case ndUINT16_CLASS: return static_cast<const uint16_t*>(p)[at];
    case ndINT32_CLASS: return static_cast<const int32_t*>(p)[at];
    case ndUINT32_CLASS: return static_cast<const uint32_t*>(p)[at];
    case ndINT64_CLASS: return double(static_cast<const int64_t*>(p)[at]);
    case ndUINT64_CLASS: return double(static_cast<const uint64_t*>(p)[at]);
    default: return 0;
    }
}

// An integer of type I from a double, saturated; NaN gives 0.
template <class I>
I saturated(double v) {
    if (std::isnan(v)) return 0;
    if (v <= double(std::numeric_limits<I>::min())) return std::numeric_limits<I>::min();
    if (v >= double(std::numeric_limits<I>::max())) return std::numeric_limits<I>::max();
    return I(v);
}

void setValue(ndArray* a, size_t k, double v) {
    void* p = ndGetData(a);
    const size_t at = ndIsComplex(a) ? 2 * k : k;
    switch (ndGetClassID(a)) {
    case ndDOUBLE_CLASS: static_cast<double*>(p)[at] = v; break;
    case ndSINGLE_CLASS: static_cast<float*>(p)[at] = float(v); break;
    case ndLOGICAL_CLASS: static_cast<uint8_t*>(p)[at] = v != 0; break;
    case ndCHAR_CLASS: static_cast<char16_t*>(p)[at] = saturated<uint16_t>(v); break;
    case ndINT8_CLASS: static_cast<int8_t*>(p)[at] = saturated<int8_t>(v); break;
    case ndUINT8_CLASS: static_cast<uint8_t*>(p)[at] = saturated<uint8_t>(v); break;
    case ndINT16_CLASS: static_cast<int16_t*>(p)[at] = saturated<int16_t>(v); break;
    case ndUINT16_CLASS: static_cast<uint16_t*>(p)[at] = saturated<uint16_t>(v); break;
    case ndINT32_CLASS: static_cast<int32_t*>(p)[at] = saturated<int32_t>(v); break;
    case ndUINT32_CLASS: static_cast<uint32_t*>(p)[at] = saturated<uint32_t>(v); break;
    case ndINT64_CLASS: static_cast<int64_t*>(p)[at] = saturated<int64_t>(v); break;
    case ndUINT64_CLASS: static_cast<uint64_t*>(p)[at] = saturated<uint64_t>(v); break;
    default: break;
    }
}

// A dense array of `cls` and `dims` whose element k is source(k).
template <class Source>
Owned denseArray(ndClassID cls, std::vector<size_t> dims, bool complex, Source&& source) {
    Owned out(cls == ndCHAR_CLASS ? ndCreateCharArray(dims.size(), dims.data())
                                  : ndCreateNumericArray(dims.size(), dims.data(), cls, complex ? ndCOMPLEX : ndREAL));
    const size_t n = ndGetNumberOfElements(out.get());
    for (size_t k = 0; k < n; ++k) setValue(out.get(), k, source(k));
    return out;
}

std::vector<size_t> dimsOf(const ndArray* a) {
    return std::vector<size_t>(ndGetDimensions(a), ndGetDimensions(a) + ndGetNumberOfDimensions(a));
}

// The same array as a dense copy with another shape: element k of the new
// shape (up to the old count) is element map(k) of the old.
template <class Map>
Owned reshapedCopy(const ndArray* a, std::vector<size_t> dims, Map&& map) {
    if (ndGetClassID(a) == ndCELL_CLASS) {
        size_t count = 1;
        for (size_t d : dims) count *= d;
        Owned c(ndCreateCellMatrix(1, count));
        for (size_t k = 0; k < count; ++k) {
            const size_t from = map(k);
            const ndArray* e = from < ndGetNumberOfElements(a) ? ndGetCell(a, from) : nullptr;
            ndSetCell(c.get(), k, e ? ndDuplicateArray(e) : zvhost::matrixOf<double>(0, 0).release());
        }
        return c;
    }
    const size_t have = ndGetNumberOfElements(a);
    return denseArray(ndGetClassID(a), std::move(dims), ndIsComplex(a), [&](size_t k) {
        const size_t from = map(k);
        return from < have ? valueAt(a, from) : 1.0;
    });
}

Owned densified(const ndArray* a) {
    // A sparse double read through its stored entries.
    const size_t m = ndGetM(a), n = ndGetN(a);
    std::vector<double> v(m * n, 0.0);
    const double* values = static_cast<const double*>(ndGetData(a));
    const size_t* rows = ndGetRowIndices(a);
    const size_t* starts = ndGetColumnStarts(a);
    for (size_t j = 0; j < n; ++j)
        for (size_t e = starts[j]; e < starts[j + 1]; ++e) v[rows[e] + j * m] = values ? values[e] : 0;
    return zvhost::matrixOf<double>(m, n, std::span<const double>(v));
}

std::string describe(const ndArray* a) {
    std::string s = zvhost::className(a);
    if (ndIsSparse(a)) s += " sparse";
    if (ndIsComplex(a)) s += " complex";
    s += " ";
    for (size_t k = 0; k < ndGetNumberOfDimensions(a); ++k)
        s += (k ? "x" : "") + std::to_string(ndGetDimensions(a)[k]);
    return s;
}

std::string number(double v) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "%.17g", v);
    return buf;
}

Owned hostObject(Rng& rng, std::string& what) {
    switch (pick(rng, 4)) {
    case 0: what = "function handle"; return Owned(zvhost::createFunctionHandle("pdist"));
    case 1: what = "gpuArray object"; return Owned(zvhost::createHostObject("gpuArray"));
    case 2: what = "string object"; return Owned(zvhost::createStringObject(u"euclidean"));
    default: what = "stream object"; return Owned(zvhost::createStreamObject(zvhost::makeStream(5)));
    }
}

Owned someText(Rng& rng, std::string& what) {
    static const char* const kTexts[] = {"",        "x",      "xyz",       "euclidean", "EUC",     "single",
                                         "double",  "like",   "gpuArray",  "pdist",     "Exact",   "Queue",
                                         "mi",      "average", "no.such.function", "sqeuclidean"};
    const size_t choice = pick(rng, std::size(kTexts) + 2);
    if (choice < std::size(kTexts)) {
        what = std::string("text \"") + kTexts[choice] + "\"";
        return zvhost::text(kTexts[choice]);
    }
    if (choice == std::size(kTexts)) {
        what = "a text of 3000 letters";
        return zvhost::text(std::string(3000, 'q'));
    }
    what = "non-ASCII text";
    return Owned(zvhost::createCharRow(u"\u00e9uclid\u00e9an"));
}

// ---- one input --------------------------------------------------------------

Owned emptyOf(const ndArray* a, Rng& rng, std::string& what) {
    const size_t m = std::max<size_t>(ndGetM(a), 1), n = std::max<size_t>(ndGetN(a), 1);
    const std::vector<std::vector<size_t>> shapes = {{0, 0}, {0, n}, {m, 0}};
    const auto& dims = shapes[pick(rng, shapes.size())];
    what = "empty " + std::to_string(dims[0]) + "x" + std::to_string(dims[1]);
    switch (ndGetClassID(a)) {
    case ndCELL_CLASS: return Owned(ndCreateCellMatrix(dims[0], dims[1]));
    case ndCHAR_CLASS: return Owned(ndCreateCharArray(2, dims.data()));
    case ndDOUBLE_CLASS: case ndSINGLE_CLASS: case ndLOGICAL_CLASS: case ndINT8_CLASS: case ndUINT8_CLASS:
    case ndINT16_CLASS: case ndUINT16_CLASS: case ndINT32_CLASS: case ndUINT32_CLASS: case ndINT64_CLASS:
    case ndUINT64_CLASS:
        return Owned(ndCreateNumericMatrix(dims[0], dims[1], ndGetClassID(a), ndREAL));
    default:
        return Owned(ndCreateNumericMatrix(dims[0], dims[1], ndDOUBLE_CLASS, ndREAL));
    }
}

Owned convertedClass(const ndArray* a, Rng& rng, std::string& what) {
    const ndClassID to = pickFrom<ndClassID>(rng, {ndDOUBLE_CLASS, ndSINGLE_CLASS, ndINT32_CLASS, ndLOGICAL_CLASS,
                                                   ndCHAR_CLASS, ndUINT64_CLASS, ndINT8_CLASS, ndCELL_CLASS});
    if (to == ndCELL_CLASS || !holdsNumbers(a)) {
        what = "wrapped in a 1x1 cell";
        Owned c(ndCreateCellMatrix(1, 1));
        ndSetCell(c.get(), 0, ndDuplicateArray(a));
        return c;
    }
    const Owned source = ndIsSparse(a) ? densified(a) : Owned(ndDuplicateArray(a));
    Owned out = denseArray(to, dimsOf(a), false, [&](size_t k) { return valueAt(source.get(), k); });
    what = "as " + zvhost::className(out.get());
    return out;
}

Owned shortened(const ndArray* a, Rng& rng, std::string& what, bool grow) {
    const size_t m = ndGetM(a), n = ndGetN(a);
    std::vector<size_t> dims = {m, n};
    if (!holdsNumbers(a) && ndGetClassID(a) != ndCELL_CLASS) {  // a host object has no elements to cut
        what = "(holds no elements)";
        return Owned(ndDuplicateArray(a));
    }
    const Owned source = ndIsSparse(a) ? densified(a) : Owned(ndDuplicateArray(a));
    // Vectors change along their length, matrices by a row or a column.
    const bool byRow = m != 1 && (n == 1 || pick(rng, 2) == 0);
    size_t& d = byRow ? dims[0] : dims[1];
    if (!grow && d == 0) {
        what = "(already empty)";
        return Owned(ndDuplicateArray(a));
    }
    d = grow ? d + 1 : d - 1;
    what = std::string("one ") + (byRow ? "row" : "column") + (grow ? " more" : " fewer") + ": " +
           std::to_string(dims[0]) + "x" + std::to_string(dims[1]);
    return reshapedCopy(source.get(), dims, [&](size_t k) {
        const size_t i = k % std::max<size_t>(dims[0], 1), j = k / std::max<size_t>(dims[0], 1);
        return i < m && j < n ? i + j * m : SIZE_MAX;
    });
}

Owned withValues(const ndArray* a, Rng& rng, std::string& what, bool all) {
    const double v = kSpecialValues[pick(rng, std::size(kSpecialValues))];
    if (!holdsNumbers(a) || ndIsSparse(a) || ndIsEmpty(a)) {
        what = "scalar " + number(v);
        return zvhost::scalar(v);
    }
    Owned out(ndDuplicateArray(a));
    const size_t n = ndGetNumberOfElements(out.get());
    if (all) {
        for (size_t k = 0; k < n; ++k) setValue(out.get(), k, v);
        what = "every element " + number(v);
    } else {
        const size_t k = pick(rng, n);
        setValue(out.get(), k, v);
        what = "element " + std::to_string(k) + " = " + number(v);
    }
    return out;
}

Owned sparseOf(const ndArray* a, std::string& what) {
    what = "as sparse double";
    if (ndIsSparse(a) || !holdsNumbers(a) || ndGetNumberOfDimensions(a) > 2) return Owned(ndDuplicateArray(a));
    std::vector<double> v(ndGetNumberOfElements(a));
    for (size_t k = 0; k < v.size(); ++k) v[k] = valueAt(a, k);
    return sparse(ndGetM(a), ndGetN(a), v);
}

Owned complexOf(const ndArray* a, std::string& what) {
    what = "as complex double";
    if (!holdsNumbers(a) || ndIsSparse(a)) return Owned(ndDuplicateArray(a));
    return denseArray(ndDOUBLE_CLASS, dimsOf(a), true, [&](size_t k) { return valueAt(a, k); });
}

Owned reshaped(const ndArray* a, Rng& rng, std::string& what) {
    const size_t m = ndGetM(a), n = ndGetN(a), count = ndGetNumberOfElements(a);
    if (!holdsNumbers(a) && ndGetClassID(a) != ndCELL_CLASS) return Owned(ndDuplicateArray(a));
    const Owned source = ndIsSparse(a) ? densified(a) : Owned(ndDuplicateArray(a));
    switch (pick(rng, 3)) {
    case 0:
        what = "transposed";
        return reshapedCopy(source.get(), {n, m}, [&](size_t k) { return (k / std::max<size_t>(n, 1)) + (k % std::max<size_t>(n, 1)) * m; });
    case 1:
        what = m == 1 ? "as a column" : "as a row";
        return reshapedCopy(source.get(), m == 1 ? std::vector<size_t>{count, 1} : std::vector<size_t>{1, count},
                            [](size_t k) { return k; });
    default:
        what = "three-dimensional";
        return reshapedCopy(source.get(), {m, 1, n}, [](size_t k) { return k; });
    }
}

}  // namespace

const char* kindName(MutationKind kind) {
    static const char* const kNames[] = {"none",   "empty",  "class",        "host object",  "short",
                                         "grow",   "value",  "all values",   "sparse",       "complex",
                                         "shape",  "text",   "swap",         "outputs",      "drop inputs",
                                         "extra inputs", "interrupt", "allocation failure"};
    static_assert(std::size(kNames) == size_t(MutationKind::Count));
    return kNames[size_t(kind)];
}

namespace {

Mutation mutateOnce(Call& call, Rng& rng) {
    Mutation m;
    const size_t nIn = call.inputs.size();
    // Input mutations weigh most; counts, swaps and host behaviour less.
    static const MutationKind kWeighted[] = {
        MutationKind::Empty,  MutationKind::Empty,  MutationKind::Class,     MutationKind::Class,
        MutationKind::HostObject, MutationKind::Short, MutationKind::Short,  MutationKind::Grow,
        MutationKind::Value,  MutationKind::Value,  MutationKind::Value,     MutationKind::AllValues,
        MutationKind::Sparse, MutationKind::Complex, MutationKind::Shape,    MutationKind::Text,
        MutationKind::Swap,   MutationKind::Outputs, MutationKind::DropInputs, MutationKind::ExtraInputs,
        MutationKind::Interrupt, MutationKind::AllocationFailure};
    m.kind = kWeighted[pick(rng, std::size(kWeighted))];
    if ((m.kind < MutationKind::Swap && nIn == 0) || (m.kind == MutationKind::Swap && nIn < 2))
        m.kind = MutationKind::Outputs;
    // Decided after the fallback: a call left without inputs has none to pick.
    const bool needsInput = m.kind < MutationKind::Swap;

    if (needsInput) {
        const size_t k = pick(rng, nIn);
        const ndArray* a = call.inputs[k].get();
        std::string what;
        Owned replaced;
        switch (m.kind) {
        case MutationKind::Empty: replaced = emptyOf(a, rng, what); break;
        case MutationKind::Class: replaced = convertedClass(a, rng, what); break;
        case MutationKind::HostObject: replaced = hostObject(rng, what); break;
        case MutationKind::Short: replaced = shortened(a, rng, what, false); break;
        case MutationKind::Grow: replaced = shortened(a, rng, what, true); break;
        case MutationKind::Value: replaced = withValues(a, rng, what, false); break;
        case MutationKind::AllValues: replaced = withValues(a, rng, what, true); break;
        case MutationKind::Sparse: replaced = sparseOf(a, what); break;
        case MutationKind::Complex: replaced = complexOf(a, what); break;
        case MutationKind::Shape: replaced = reshaped(a, rng, what); break;
        default: replaced = someText(rng, what); break;
        }
        m.description = "input " + std::to_string(k) + " (" + describe(a) + ") " + what;
        call.inputs[k] = std::move(replaced);
        return m;
    }
    switch (m.kind) {
    case MutationKind::Swap: {
        const size_t i = pick(rng, nIn), j = (i + 1 + pick(rng, nIn - 1)) % nIn;
        std::swap(call.inputs[i], call.inputs[j]);
        m.description = "inputs " + std::to_string(i) + " and " + std::to_string(j) + " swapped";
        break;
    }
    case MutationKind::DropInputs: {
        if (nIn == 0) break;
        if (pick(rng, 2) == 0) {
            const size_t drop = 1 + pick(rng, std::min<size_t>(nIn, 3));
            call.inputs.resize(nIn - drop);
            m.description = std::to_string(drop) + " last input(s) dropped";
        } else {
            const size_t k = pick(rng, nIn);
            call.inputs.erase(call.inputs.begin() + long(k));
            m.description = "input " + std::to_string(k) + " dropped";
        }
        break;
    }
    case MutationKind::ExtraInputs: {
        const size_t add = 1 + pick(rng, 3);
        for (size_t e = 0; e < add; ++e) {
            switch (pick(rng, 3)) {
            case 0: call.inputs.push_back(nIn ? Owned(ndDuplicateArray(call.inputs[pick(rng, nIn)].get())) : empty()); break;
            case 1: call.inputs.push_back(empty()); break;
            default: call.inputs.push_back(scalar(1)); break;
            }
        }
        m.description = std::to_string(add) + " extra input(s)";
        break;
    }
    case MutationKind::Interrupt:
        m.interruptAtPoll = long(1 + pick(rng, 8));
        m.description = "interrupted at poll " + std::to_string(m.interruptAtPoll);
        break;
    case MutationKind::AllocationFailure:
        m.failAllocationAt = long(1 + pick(rng, 40));
        m.description = "allocation " + std::to_string(m.failAllocationAt) + " fails";
        break;
    default: {
        const int before = call.numOutputs;
        call.numOutputs = pickFrom<int>(rng, {-1, 0, 1, 2, 3, 4, 7, 30, before + 1});
        m.description = "numOutputs " + std::to_string(before) + " -> " + std::to_string(call.numOutputs);
        break;
    }
    }
    return m;
}

}  // namespace

Mutation mutate(Call& call, Rng& rng) {
    Mutation first = mutateOnce(call, rng);
    if (pick(rng, 8) != 0) return first;
    Mutation second = mutateOnce(call, rng);
    first.description += "; " + second.description;
    first.interruptAtPoll = std::max(first.interruptAtPoll, second.interruptAtPoll);
    first.failAllocationAt = std::max(first.failAllocationAt, second.failAllocationAt);
    return first;
}

}  // namespace zvfuzz
