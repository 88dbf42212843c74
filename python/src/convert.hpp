// Conversions between Python values and host arrays, and the two Python
// classes that stand for host values with no numpy counterpart.
#pragma once

#include <memory>
#include <string>

#include <pybind11/pybind11.h>

#include "zvhost/arrays.hpp"

namespace zvpy {

namespace py = pybind11;

// A host value held by Python: objects ("gpuArray", "string", streams,
// function handles) and anything made with zvstats.Array. Passing it to a
// gateway passes a deep copy of the array, so the held value never changes.
struct HostValue {
    zvhost::Owned array;
};

// A host random stream that Python code can draw from and pass to gateways;
// the host array made from it shares the stream, so draws advance both.
struct Stream {
    std::shared_ptr<RandStream> stream;
};

// A new host array holding a copy of `value`; raises TypeError when the value
// has no host counterpart.
zvhost::Owned toHost(py::handle value);

// A Python value holding a copy of `a`; `a` stays with the caller.
py::object toPython(const ndArray* a);
// The same for an array the caller owns; large real arrays move into numpy.
py::object toPythonAdopting(zvhost::Owned&& owned);

// zvstats.Array(cls, shape, data): a host array of any class, by class name.
zvhost::Owned makeArray(const std::string& cls, const py::object& shape, const py::object& data);

// The dimension vector of `a` as a Python tuple.
py::tuple dimensionsOf(const ndArray* a);

// UTF-16 text (char data, string objects) as a Python str.
py::str textOf(const std::u16string& text);

}  // namespace zvpy
