// Errors across the boundary: host errors reach Python as zvstats.HostError,
// KeyboardInterrupt or MemoryError; a Python exception raised inside a
// registered function travels through the host as a host error and comes
// back out as itself.
#pragma once

#include <string>
#include <vector>

#include <pybind11/pybind11.h>

#include "host/except.hpp"

namespace zvpy {

namespace py = pybind11;

// The Python class zvstats.HostError, handed over once at import.
void setHostErrorClass(py::handle cls);

// A Python exception as a host error. A zvstats.HostError keeps its
// identifier and arguments; any other exception reads
// "zvhost:python:<exception class>" with its text as the one argument.
class PythonError final : public bedrock::core::except::HostError {
public:
    PythonError(const BaseMsgID& id, py::error_already_set error);
    PythonError* clone() const override;
    [[noreturn]] void rethrow() const override;
    // Makes the original exception the current Python error; GIL held.
    void restore() const;

private:
    mutable py::error_already_set error_;
};

// Throws the host's counterpart of a Python exception: the host's
// interruption for KeyboardInterrupt, its allocation failure for
// MemoryError, a PythonError for the rest. GIL held.
[[noreturn]] void throwAsHostError(py::error_already_set& error);

// Raises a host error of the binding's own, such as "zvhost:UndefinedGateway".
[[noreturn]] void raiseHostError(const std::string& identifier, std::vector<BaseMsgID::Arg> args);

// The arguments of an identifier: int for long, str for text.
py::tuple argsToPython(const BaseMsgID& id);

// Registers the translation of host exceptions for every function of the
// module.
void registerExceptionTranslation();

}  // namespace zvpy
