// Translation between host exceptions and Python exceptions.
#include "errors.hpp"

#include <string>

#include "zvhost/control.hpp"

namespace zvpy {

namespace {

namespace bce = bedrock::core::except;
using namespace pybind11::literals;

// Held for the life of the process: a py::object in static storage would be
// released after the interpreter is gone.
PyObject* hostErrorClass = nullptr;

BaseMsgID msgId(const std::string& identifier, std::vector<BaseMsgID::Arg> args) {
    const size_t colon = identifier.rfind(':');
    const size_t split = colon == std::string::npos ? 0 : colon;
    const size_t idStart = colon == std::string::npos ? 0 : colon + 1;
    BaseMsgID id(identifier.data(), split, identifier.data() + idStart, identifier.size() - idStart, 0);
    id.args = std::move(args);
    return id;
}

py::object argToPython(const BaseMsgID::Arg& arg) {
    if (auto* l = std::get_if<long>(&arg)) return py::int_(*l);
    if (auto* s = std::get_if<std::string>(&arg)) return py::str(*s);
    const auto& u = std::get<std::u16string>(arg);
    int littleEndian = -1;
    return py::reinterpret_steal<py::object>(PyUnicode_DecodeUTF16(
        reinterpret_cast<const char*>(u.data()), py::ssize_t(u.size() * 2), "replace", &littleEndian));
}

BaseMsgID::Arg argFromPython(py::handle arg) {
    if (PyLong_Check(arg.ptr()) && !PyBool_Check(arg.ptr())) return arg.cast<long>();
    return py::str(arg).cast<std::string>();
}

void setHostError(const bce::IMsgIDException& e) {
    const BaseMsgID& msg = e.GetBaseMsgIDObj();
    py::tuple args = argsToPython(msg);
    if (!hostErrorClass) {
        PyErr_SetString(PyExc_RuntimeError, zvhost::messageText(msg).c_str());
        return;
    }
    py::object cls = py::reinterpret_borrow<py::object>(hostErrorClass);
    py::object exc = cls(e.GetID(), *args, "message"_a = zvhost::messageText(msg));
    PyErr_SetObject(hostErrorClass, exc.ptr());
}

}  // namespace

py::tuple argsToPython(const BaseMsgID& id) {
    py::tuple args(id.args.size());
    for (size_t k = 0; k < id.args.size(); ++k) args[k] = argToPython(id.args[k]);
    return args;
}

void raiseHostError(const std::string& identifier, std::vector<BaseMsgID::Arg> args) {
    throw bce::HostError(msgId(identifier, std::move(args)));
}

void setHostErrorClass(py::handle cls) {
    Py_XDECREF(hostErrorClass);
    hostErrorClass = cls.inc_ref().ptr();
}

PythonError::PythonError(const BaseMsgID& id, py::error_already_set error)
    : HostError(id), error_(std::move(error)) {}
PythonError* PythonError::clone() const { return new PythonError(*this); }
void PythonError::rethrow() const { throw PythonError(*this); }
void PythonError::restore() const { error_.restore(); }

void throwAsHostError(py::error_already_set& error) {
    if (error.matches(PyExc_KeyboardInterrupt)) throw zvhost::Interrupted();
    if (error.matches(PyExc_MemoryError)) throw bce::bad_alloc();
    if (hostErrorClass && error.matches(hostErrorClass)) {
        const py::object& value = error.value();
        std::vector<BaseMsgID::Arg> args;
        for (py::handle a : py::tuple(value.attr("args"))) args.push_back(argFromPython(a));
        throw PythonError(msgId(py::str(value.attr("identifier")), std::move(args)), error);
    }
    const std::string kind = py::str(error.type().attr("__name__"));
    throw PythonError(msgId("zvhost:python:" + kind, {py::str(error.value()).cast<std::string>()}), error);
}

void registerExceptionTranslation() {
    py::register_exception_translator([](std::exception_ptr p) {
        if (!p) return;
        try {
            std::rethrow_exception(p);
        } catch (const PythonError& e) {
            e.restore();
        } catch (const zvhost::Interrupted&) {
            PyErr_SetNone(PyExc_KeyboardInterrupt);
        } catch (const bce::IMsgIDException& e) {
            setHostError(e);
        }
        // Anything else goes on to pybind11's own translation: bad_alloc
        // becomes MemoryError, other std::exception RuntimeError.
    });
}

}  // namespace zvpy
