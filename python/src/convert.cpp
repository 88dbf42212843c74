// Python values to host arrays and back. Numeric data is copied into the
// host's column-major order; N-D shapes are kept and 1-D arrays become rows.
#include "convert.hpp"

#include <complex>
#include <cstring>
#include <span>
#include <vector>

#include <pybind11/complex.h>
#include <pybind11/numpy.h>
#include <pybind11/stl.h>

namespace zvpy {

namespace {

using namespace pybind11::literals;

// Calls f(T{}) with the element type of a real numeric or logical class;
// false for any other class.
template <class F>
bool visitElementType(ndClassID cls, F&& f) {
    switch (cls) {
    case ndDOUBLE_CLASS: f(double{}); return true;
    case ndSINGLE_CLASS: f(float{}); return true;
    case ndLOGICAL_CLASS: f(bool{}); return true;
    case ndINT8_CLASS: f(int8_t{}); return true;
    case ndUINT8_CLASS: f(uint8_t{}); return true;
    case ndINT16_CLASS: f(int16_t{}); return true;
    case ndUINT16_CLASS: f(uint16_t{}); return true;
    case ndINT32_CLASS: f(int32_t{}); return true;
    case ndUINT32_CLASS: f(uint32_t{}); return true;
    case ndINT64_CLASS: f(int64_t{}); return true;
    case ndUINT64_CLASS: f(uint64_t{}); return true;
    default: return false;
    }
}

// Host class names that equal a numeric class, with the numpy dtype of each.
struct NamedClass {
    const char* name;
    ndClassID id;
    const char* dtype;
};
constexpr NamedClass kNumericClasses[] = {
    {"double", ndDOUBLE_CLASS, "float64"}, {"single", ndSINGLE_CLASS, "float32"},
    {"logical", ndLOGICAL_CLASS, "bool"},  {"int8", ndINT8_CLASS, "int8"},
    {"uint8", ndUINT8_CLASS, "uint8"},     {"int16", ndINT16_CLASS, "int16"},
    {"uint16", ndUINT16_CLASS, "uint16"},  {"int32", ndINT32_CLASS, "int32"},
    {"uint32", ndUINT32_CLASS, "uint32"},  {"int64", ndINT64_CLASS, "int64"},
    {"uint64", ndUINT64_CLASS, "uint64"},
};

const NamedClass* numericClassNamed(const std::string& name) {
    for (const auto& c : kNumericClasses)
        if (name == c.name) return &c;
    return nullptr;
}

ndClassID classOfDtype(const py::dtype& dt) {
    const auto size = dt.itemsize();
    switch (dt.kind()) {
    case 'f': return size == 8 ? ndDOUBLE_CLASS : size == 4 ? ndSINGLE_CLASS : ndUNKNOWN_CLASS;
    case 'b': return ndLOGICAL_CLASS;
    case 'i':
        return size == 1 ? ndINT8_CLASS : size == 2 ? ndINT16_CLASS : size == 4 ? ndINT32_CLASS
             : size == 8 ? ndINT64_CLASS : ndUNKNOWN_CLASS;
    case 'u':
        return size == 1 ? ndUINT8_CLASS : size == 2 ? ndUINT16_CLASS : size == 4 ? ndUINT32_CLASS
             : size == 8 ? ndUINT64_CLASS : ndUNKNOWN_CLASS;
    default: return ndUNKNOWN_CLASS;
    }
}

py::module_ numpy() { return py::module_::import("numpy"); }

// The host keeps trailing singleton dimensions past the second out of its
// dimension vectors, as its own language does.
void trimTrailingOnes(std::vector<size_t>& dims) {
    while (dims.size() > 2 && dims.back() == 1) dims.pop_back();
}

std::vector<size_t> hostDimsOf(const py::array& a) {
    std::vector<size_t> dims;
    if (a.ndim() == 0) dims = {1, 1};
    else if (a.ndim() == 1) dims = {1, size_t(a.shape(0))};
    else
        for (py::ssize_t k = 0; k < a.ndim(); ++k) dims.push_back(size_t(a.shape(k)));
    trimTrailingOnes(dims);
    return dims;
}

size_t countOf(const std::vector<size_t>& dims) {
    size_t n = 1;
    for (size_t d : dims) n *= d;
    return n;
}

std::vector<size_t> dimsOf(const ndArray* a) {
    const size_t* d = ndGetDimensions(a);
    return std::vector<size_t>(d, d + ndGetNumberOfDimensions(a));
}

py::tuple shapeTuple(const std::vector<size_t>& dims) {
    py::tuple t(dims.size());
    for (size_t k = 0; k < dims.size(); ++k) t[k] = py::int_(dims[k]);
    return t;
}

std::u16string utf16Of(py::handle text) {
    auto bytes = py::reinterpret_steal<py::bytes>(
        PyUnicode_AsEncodedString(text.ptr(), "utf-16-le", "surrogatepass"));
    if (!bytes) throw py::error_already_set();
    std::string raw = bytes;
    std::u16string out(raw.size() / 2, u'\0');
    if (!out.empty()) std::memcpy(out.data(), raw.data(), out.size() * 2);
    return out;
}

py::str strOf(const std::u16string& text) {
    int littleEndian = -1;
    PyObject* s = PyUnicode_DecodeUTF16(reinterpret_cast<const char*>(text.data()),
                                        py::ssize_t(text.size() * 2), "surrogatepass", &littleEndian);
    if (!s) throw py::error_already_set();
    return py::reinterpret_steal<py::str>(s);
}

// Data for zvstats.Array: as many values as the shape holds fill it in
// column-major order; fewer are broadcast.
py::array fitToDims(const py::array& values, const std::vector<size_t>& dims) {
    if (size_t(values.size()) == countOf(dims))
        return numpy().attr("reshape")(values, shapeTuple(dims), "order"_a = "F");
    return numpy().attr("broadcast_to")(values, shapeTuple(dims));
}

// ---- Python to host ----------------------------------------------------------------

template <class T>
zvhost::Owned numericFromArray(const py::array& a, ndClassID cls, const std::vector<size_t>& dims) {
    auto f = py::array_t<T, py::array::f_style | py::array::forcecast>::ensure(a);
    if (!f) throw py::error_already_set();
    zvhost::Owned out(ndCreateNumericArray(dims.size(), dims.data(), cls, ndREAL));
    if (f.size() > 0) std::memcpy(ndGetData(out.get()), f.data(), size_t(f.size()) * sizeof(T));
    return out;
}

// Complex arrays keep all real parts first and the imaginary parts after
// them, so that a gateway reading the data as real sees the real part.
template <class T>
zvhost::Owned complexFromArray(const py::array& a, ndClassID cls, const std::vector<size_t>& dims) {
    auto f = py::array_t<std::complex<T>, py::array::f_style | py::array::forcecast>::ensure(a);
    if (!f) throw py::error_already_set();
    zvhost::Owned out(ndCreateNumericArray(dims.size(), dims.data(), cls, ndCOMPLEX));
    const size_t n = size_t(f.size());
    T* re = static_cast<T*>(ndGetData(out.get()));
    T* im = re + n;
    const std::complex<T>* src = f.data();
    for (size_t k = 0; k < n; ++k) {
        re[k] = src[k].real();
        im[k] = src[k].imag();
    }
    return out;
}

// A cell of the given dimensions from Python values in column-major order.
zvhost::Owned cellFromItems(const py::sequence& items, const std::vector<size_t>& dims) {
    zvhost::Owned cell = matrix::detail::do_create_cell(std::span<const size_t>(dims));
    const size_t n = countOf(dims);
    if (size_t(py::len(items)) != n) throw py::value_error("zvstats: cell contents do not match its shape");
    for (size_t i = 0; i < n; ++i) ndSetCell(cell.get(), i, toHost(items[i]).release());
    return cell;
}

// A numpy array of one-letter strings is a char array of its shape: the way
// char matrices come out of the binding.
zvhost::Owned charFromLetters(const py::array& a, const std::vector<size_t>& dims) {
    auto letters = py::array_t<uint32_t, py::array::f_style | py::array::forcecast>::ensure(
        a.attr("astype")("<U1").attr("view")("<u4"));
    if (!letters) throw py::error_already_set();
    zvhost::Owned out(ndCreateCharArray(dims.size(), dims.data()));
    auto* text = static_cast<char16_t*>(ndGetData(out.get()));
    for (py::ssize_t k = 0; k < letters.size(); ++k) {
        const uint32_t c = letters.data()[k];
        if (c > 0xFFFF) throw py::value_error("zvstats: a char array holds 16-bit code units only");
        text[k] = char16_t(c);
    }
    return out;
}

zvhost::Owned fromNumpy(const py::array& a) {
    const std::vector<size_t> dims = hostDimsOf(a);
    const py::dtype dt = a.dtype();
    const char kind = dt.kind();
    if (kind == 'U' && dt.itemsize() == 4) return charFromLetters(a, dims);
    if (kind == 'O' || kind == 'U') return cellFromItems(a.attr("ravel")("F").attr("tolist")(), dims);
    if (kind == 'c') {
        if (dt.itemsize() == 16) return complexFromArray<double>(a, ndDOUBLE_CLASS, dims);
        if (dt.itemsize() == 8) return complexFromArray<float>(a, ndSINGLE_CLASS, dims);
    }
    const ndClassID cls = classOfDtype(dt);
    zvhost::Owned out;
    if (!visitElementType(cls, [&](auto tag) { out = numericFromArray<decltype(tag)>(a, cls, dims); }))
        throw py::type_error("zvstats: no host class for numpy dtype " + py::str(static_cast<py::handle>(dt)).cast<std::string>());
    return out;
}

bool isScipySparse(py::handle value) {
    py::dict modules = py::module_::import("sys").attr("modules");
    if (!modules.contains("scipy.sparse")) return false;  // nothing sparse can exist yet
    return modules["scipy.sparse"].attr("issparse")(value).cast<bool>();
}

zvhost::Owned fromScipySparse(py::handle value) {
    py::object csc = value.attr("tocsc")("copy"_a = true);
    csc.attr("sum_duplicates")();  // also sorts the rows within each column
    if (py::dtype(csc.attr("dtype")).kind() == 'c')
        throw py::type_error("zvstats: the host has no complex sparse arrays");
    const auto shape = csc.attr("shape").cast<std::pair<size_t, size_t>>();
    auto values = py::array_t<double, py::array::c_style | py::array::forcecast>::ensure(csc.attr("data"));
    auto rows = py::array_t<int64_t, py::array::c_style | py::array::forcecast>::ensure(csc.attr("indices"));
    auto starts = py::array_t<int64_t, py::array::c_style | py::array::forcecast>::ensure(csc.attr("indptr"));
    if (!values || !rows || !starts) throw py::error_already_set();
    const size_t n = shape.second;
    const size_t nnz = size_t(starts.data()[n]);
    zvhost::Owned out(zvhost::createSparse(shape.first, n, nnz));
    if (nnz > 0) std::memcpy(ndGetData(out.get()), values.data(), nnz * sizeof(double));
    size_t* rowOut = ndGetRowIndices(out.get());
    size_t* startOut = ndGetColumnStarts(out.get());
    for (size_t k = 0; k < nnz; ++k) rowOut[k] = size_t(rows.data()[k]);
    for (size_t j = 0; j <= n; ++j) startOut[j] = size_t(starts.data()[j]);
    return out;
}

// ---- host to Python ----------------------------------------------------------------

template <class T>
py::object numericToPython(const ndArray* a) {
    const std::vector<size_t> dims = dimsOf(a);
    py::array_t<T, py::array::f_style> out(std::vector<py::ssize_t>(dims.begin(), dims.end()));
    const size_t n = countOf(dims);
    if (n == 0) return out;
    if constexpr (std::is_same_v<T, bool>) {
        // Any non-zero byte is true to the host; numpy wants exactly 0 or 1.
        const auto* src = static_cast<const unsigned char*>(ndGetData(a));
        bool* dst = out.mutable_data();
        for (size_t k = 0; k < n; ++k) dst[k] = src[k] != 0;
    } else {
        std::memcpy(out.mutable_data(), ndGetData(a), n * sizeof(T));
    }
    return out;
}

// Large real arrays are handed to numpy without a copy: the array keeps the
// host array alive through a capsule and destroys it when numpy is done.
constexpr size_t kAdoptMinElements = size_t(1) << 15;

template <class T>
py::object adoptNumeric(zvhost::Owned& owned) {
    const std::vector<size_t> dims = dimsOf(owned.get());
    std::vector<py::ssize_t> shape(dims.begin(), dims.end()), strides(dims.size());
    py::ssize_t stride = sizeof(T);
    for (size_t k = 0; k < dims.size(); ++k) {
        strides[k] = stride;
        stride *= py::ssize_t(dims[k]);
    }
    T* data = static_cast<T*>(ndGetData(owned.get()));
    py::capsule keeper(owned.get(), [](void* p) { ndDestroyArray(static_cast<ndArray*>(p)); });
    owned.release();
    return py::array_t<T>(shape, strides, data, keeper);
}

template <class T>
py::object complexToPython(const ndArray* a) {
    const std::vector<size_t> dims = dimsOf(a);
    py::array_t<std::complex<T>, py::array::f_style> out(std::vector<py::ssize_t>(dims.begin(), dims.end()));
    const size_t n = countOf(dims);
    const T* re = static_cast<const T*>(ndGetData(a));
    std::complex<T>* dst = out.mutable_data();
    for (size_t k = 0; k < n; ++k) dst[k] = std::complex<T>(re[k], re[n + k]);
    return out;
}

// A char row (or an empty char array) is a str; a char matrix is a numpy
// array of one-character strings in the host's shape.
py::object charToPython(const ndArray* a) {
    const std::vector<size_t> dims = dimsOf(a);
    const std::u16string text = zvhost::charData(a);
    if ((dims.size() == 2 && dims[0] == 1) || text.empty()) return strOf(text);
    py::list letters;
    for (char16_t c : text) letters.append(strOf(std::u16string(1, c)));
    return numpy().attr("array")(letters, "dtype"_a = "<U1").attr("reshape")(shapeTuple(dims), "order"_a = "F");
}

py::object cellToPython(const ndArray* a) {
    const std::vector<size_t> dims = dimsOf(a);
    py::array out = numpy().attr("empty")(shapeTuple(dims), "dtype"_a = "object", "order"_a = "F");
    // In Fortran order the buffer runs column-major, as the host's cells do.
    auto** slots = static_cast<PyObject**>(out.mutable_data());
    const size_t n = countOf(dims);
    for (size_t i = 0; i < n; ++i) {
        py::object item = toPython(ndGetCell(a, i));
        Py_XDECREF(slots[i]);
        slots[i] = item.release().ptr();
    }
    return out;
}

py::object sparseToPython(const ndArray* a) {
    const size_t m = ndGetM(a), n = ndGetN(a);
    const size_t* starts = ndGetColumnStarts(a);
    const size_t nnz = starts ? starts[n] : 0;
    auto values = py::array_t<double>(py::ssize_t(nnz));
    auto rows = py::array_t<int64_t>(py::ssize_t(nnz));
    auto columnStarts = py::array_t<int64_t>(py::ssize_t(n + 1));
    if (nnz > 0) std::memcpy(values.mutable_data(), ndGetData(a), nnz * sizeof(double));
    for (size_t k = 0; k < nnz; ++k) rows.mutable_data()[k] = int64_t(ndGetRowIndices(a)[k]);
    for (size_t j = 0; j <= n; ++j) columnStarts.mutable_data()[j] = starts ? int64_t(starts[j]) : 0;
    py::module_ sparse = py::module_::import("scipy.sparse");
    return sparse.attr("csc_matrix")(py::make_tuple(values, rows, columnStarts),
                                     "shape"_a = py::make_tuple(m, n));
}

py::object wrapped(const ndArray* a) {
    return py::cast(HostValue{zvhost::Owned(ndDuplicateArray(a))});
}

}  // namespace

zvhost::Owned toHost(py::handle value) {
    if (value.is_none()) return zvhost::Owned(ndCreateDoubleMatrix(0, 0, ndREAL));
    if (py::isinstance<HostValue>(value))
        return zvhost::Owned(ndDuplicateArray(value.cast<const HostValue&>().array.get()));
    if (py::isinstance<Stream>(value))
        return zvhost::Owned(zvhost::createStreamObject(value.cast<const Stream&>().stream));
    if (PyBool_Check(value.ptr())) return zvhost::logicalScalar(value.ptr() == Py_True);
    if (py::isinstance<py::array>(value)) return fromNumpy(py::reinterpret_borrow<py::array>(value));
    if (PyFloat_Check(value.ptr()) || PyLong_Check(value.ptr())) return zvhost::scalar(value.cast<double>());
    if (PyComplex_Check(value.ptr()) || py::isinstance(value, numpy().attr("generic")))
        return fromNumpy(numpy().attr("asarray")(value));
    if (PyUnicode_Check(value.ptr())) return zvhost::Owned(zvhost::createCharRow(utf16Of(value)));
    if (PyList_Check(value.ptr()) || PyTuple_Check(value.ptr())) {
        const auto items = py::reinterpret_borrow<py::sequence>(value);
        return cellFromItems(items, {1, size_t(py::len(items))});
    }
    if (isScipySparse(value)) return fromScipySparse(value);
    throw py::type_error("zvstats: no host value for a Python " +
                         py::str(py::type::handle_of(value).attr("__name__")).cast<std::string>());
}

py::object toPython(const ndArray* a) {
    if (!a) return numpy().attr("empty")(py::make_tuple(0, 0));  // an unset cell holds []
    const ndClassID cls = ndGetClassID(a);
    if (ndIsSparse(a)) return sparseToPython(a);
    if (cls == ndCHAR_CLASS) return charToPython(a);
    if (cls == ndCELL_CLASS) return cellToPython(a);
    if (ndIsComplex(a)) {
        if (cls == ndDOUBLE_CLASS) return complexToPython<double>(a);
        if (cls == ndSINGLE_CLASS) return complexToPython<float>(a);
        return wrapped(a);
    }
    py::object out;
    if (visitElementType(cls, [&](auto tag) { out = numericToPython<decltype(tag)>(a); })) return out;
    return wrapped(a);
}

py::tuple dimensionsOf(const ndArray* a) { return shapeTuple(dimsOf(a)); }

py::str textOf(const std::u16string& text) { return strOf(text); }

zvhost::Owned makeArray(const std::string& cls, const py::object& shape, const py::object& data) {
    std::vector<size_t> dims;
    const bool hasShape = !shape.is_none();
    if (hasShape) {
        if (PyLong_Check(shape.ptr())) dims = {1, shape.cast<size_t>()};
        else dims = shape.cast<std::vector<size_t>>();
        if (dims.size() == 1) dims.insert(dims.begin(), 1);
        while (dims.size() < 2) dims.push_back(dims.empty() ? 0 : 1);
        trimTrailingOnes(dims);
    }

    if (const NamedClass* named = numericClassNamed(cls)) {
        if (data.is_none()) {
            if (!hasShape) dims = {1, 1};
            return zvhost::Owned(ndCreateNumericArray(dims.size(), dims.data(), named->id, ndREAL));
        }
        py::array values = numpy().attr("asarray")(data, "dtype"_a = named->dtype);
        if (hasShape) values = fitToDims(values, dims);
        else dims = hostDimsOf(values);
        zvhost::Owned out;
        visitElementType(named->id, [&](auto tag) { out = numericFromArray<decltype(tag)>(values, named->id, dims); });
        return out;
    }
    if (cls == "complex") {
        py::array values = numpy().attr("asarray")(data.is_none() ? py::object(py::int_(0)) : data,
                                                   "dtype"_a = "complex128");
        if (!hasShape) dims = data.is_none() ? std::vector<size_t>{1, 1} : hostDimsOf(values);
        values = fitToDims(values, dims);
        return complexFromArray<double>(values, ndDOUBLE_CLASS, dims);
    }
    if (cls == "char") {
        const std::u16string text = data.is_none() ? std::u16string() : utf16Of(py::str(data));
        if (!hasShape) return zvhost::Owned(zvhost::createCharRow(text));
        if (countOf(dims) != text.size()) throw py::value_error("zvstats: char data does not match its shape");
        zvhost::Owned out(ndCreateCharArray(dims.size(), dims.data()));
        if (!text.empty()) std::memcpy(ndGetData(out.get()), text.data(), text.size() * 2);
        return out;
    }
    if (cls == "cell") {
        if (!hasShape) dims = {0, 0};
        if (data.is_none()) return matrix::detail::do_create_cell(std::span<const size_t>(dims));
        return cellFromItems(py::reinterpret_borrow<py::sequence>(data), dims);
    }
    if (cls == "sparse") {
        if (!data.is_none()) throw py::value_error("zvstats: pass sparse data as a scipy.sparse matrix");
        if (!hasShape || dims.size() != 2) throw py::value_error("zvstats: a sparse array needs an (m, n) shape");
        return zvhost::Owned(zvhost::createSparse(dims[0], dims[1], 0));
    }
    if (cls == "string")
        return zvhost::Owned(zvhost::createStringObject(data.is_none() ? std::u16string() : utf16Of(py::str(data))));
    if (cls == "function_handle") return zvhost::Owned(zvhost::createFunctionHandle(py::str(data).cast<std::string>()));
    if (cls == "RandStream")
        return zvhost::Owned(zvhost::createStreamObject(zvhost::makeStream(data.is_none() ? 0u : data.cast<uint32_t>())));
    return zvhost::Owned(zvhost::createHostObject(cls));
}

py::object toPythonAdopting(zvhost::Owned&& owned) {
    const ndArray* a = owned.get();
    const ndClassID cls = ndGetClassID(a);
    if (!ndIsSparse(a) && !ndIsComplex(a) && cls != ndLOGICAL_CLASS && ndIsNumeric(a) &&
        ndGetNumberOfElements(a) >= kAdoptMinElements) {
        py::object out;
        if (visitElementType(cls, [&](auto tag) {
                if constexpr (!std::is_same_v<decltype(tag), bool>) out = adoptNumeric<decltype(tag)>(owned);
            }))
            return out;
    }
    return toPython(a);
}

}  // namespace zvpy
