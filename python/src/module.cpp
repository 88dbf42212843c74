// zvstats._zvstats: the reference host, driven from Python. Loads the
// builtins library with dlopen, calls gateways by name, serves host-language
// functions with Python callables, and exposes the host's accounting,
// console capture, interruption and fault injection.
#include <dlfcn.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include "convert.hpp"
#include "errors.hpp"
#include "sigint.hpp"
#include "zvhost/arrays.hpp"
#include "frame/gateway_list.hpp"

namespace zvpy {

namespace {

using namespace pybind11::literals;

using zv::frame::kGateways;

// Loaded at import and never unloaded: TBB's worker threads may still hold
// code of the library when the interpreter exits.
zvhost::BuiltinsLibrary* library = nullptr;

// ZVSTATS_LIBRARY, else the library of the build tree the package sits in
// (<build>/python/zvstats/_zvstats.so next to <build>/lib), else the path
// the build was configured with.
std::string libraryPath() {
    if (const char* env = std::getenv("ZVSTATS_LIBRARY"); env && *env) return env;
    Dl_info info{};
    if (dladdr(reinterpret_cast<void*>(&libraryPath), &info) && info.dli_fname) {
        std::string self(info.dli_fname);
        std::string candidate = self.substr(0, self.rfind('/') + 1) + "../../lib/libzvstatsbuiltins.so";
        char resolved[PATH_MAX];
        if (realpath(candidate.c_str(), resolved)) return resolved;
    }
    return ZVSTATS_DEFAULT_LIBRARY;
}

zvhost::Gateway findGateway(const std::string& name) {
    // Looked up under the GIL only; intentionally never freed.
    static auto* found = new std::unordered_map<std::string, zvhost::Gateway>();
    auto it = found->find(name);
    if (it != found->end()) return it->second;
    zvhost::Gateway f = library->find(name);
    if (!f) raiseHostError("zvhost:UndefinedGateway", {name});
    found->emplace(name, f);
    return f;
}

// An allocation failure asked for with fail_allocation_at, armed when the
// next call's inputs stand ready so that it counts the gateway's own
// allocations only.
struct PendingFailure {
    long n = 0;
    unsigned kinds = 0;
};
PendingFailure pendingFailure;

class ArmedFailure {
public:
    ArmedFailure() : armed_(pendingFailure.n > 0) {
        if (armed_) zvhost::failAllocationAt(pendingFailure.n, pendingFailure.kinds);
        pendingFailure = {};
    }
    ~ArmedFailure() {
        if (armed_) zvhost::failAllocationAt(0);
    }

private:
    bool armed_;
};

py::list call(const std::string& name, int numOutputs, const py::args& inputs) {
    zvhost::Gateway f = findGateway(name);
    std::vector<zvhost::Owned> owned;
    std::vector<const ndArray*> raw;
    for (py::handle v : inputs) {
        owned.push_back(toHost(v));
        raw.push_back(owned.back().get());
    }

    std::vector<ndArray*> slots;
    bool signalled = false;
    {
        SigintRelay relay;
        ArmedFailure failure;
        {
            py::gil_scoped_release released;
            slots = zvhost::callGateway(f, numOutputs, raw);
        }
        signalled = relay.signalled();
    }
    std::vector<zvhost::Owned> outputs(slots.begin(), slots.end());
    if (signalled) {
        // The call got past its last poll before the signal: the user still
        // asked to stop, and gets no result.
        PyErr_SetNone(PyExc_KeyboardInterrupt);
        throw py::error_already_set();
    }
    py::list result;
    for (auto& a : outputs)
        if (a) result.append(toPythonAdopting(std::move(a)));
    return result;
}

// ---- host-language functions served by Python -------------------------------------

std::vector<zvhost::Owned> outputsFrom(py::handle result, size_t slots) {
    std::vector<zvhost::Owned> out;
    if (result.is_none()) return out;
    if (PyList_Check(result.ptr()) || PyTuple_Check(result.ptr())) {
        const auto items = py::reinterpret_borrow<py::sequence>(result);
        if (size_t(py::len(items)) > slots)
            throw py::value_error("zvstats: a registered function returned " + std::to_string(py::len(items)) +
                                  " outputs for " + std::to_string(slots) + " slots");
        for (py::handle item : items) out.push_back(toHost(item));
    } else {
        out.push_back(toHost(result));
    }
    return out;
}

// Calls fn for a host function call; the GIL is held.
void serve(const py::object& fn, int numOutputs, ndArray** outputs, int numInputs, const ndArray** inputs) {
    std::vector<zvhost::Owned> results;
    try {
        py::tuple args(size_t(numInputs) + 1);
        args[0] = py::int_(numOutputs);
        for (int k = 0; k < numInputs; ++k) args[size_t(k) + 1] = toPython(inputs[k]);
        results = outputsFrom(fn(*args), size_t(numOutputs > 1 ? numOutputs : 1));
    } catch (py::error_already_set& e) {
        throwAsHostError(e);
    } catch (py::builtin_exception& e) {
        e.set_error();
        py::error_already_set fetched;
        throwAsHostError(fetched);
    }
    // Only a complete set of outputs reaches the slots.
    for (size_t k = 0; k < results.size(); ++k) outputs[k] = results[k].release();
}

// The Python callable behind a registered name. The host keeps replaced
// and removed functions alive for calls that may still hold them, so what it
// keeps is this slot, which lets go of the callable when the name goes.
struct ServedFunction {
    py::object fn;
};
using ServedSlot = std::shared_ptr<ServedFunction>;

// Touched under the GIL only; never freed, as the slots may outlive the
// interpreter inside the host.
auto& servedByName = *new std::unordered_map<std::string, ServedSlot>();

void release(const std::string& name) {
    auto it = servedByName.find(name);
    if (it == servedByName.end()) return;
    it->second->fn = py::object();
    servedByName.erase(it);
}

void registerPython(const std::string& name, const py::object& fn) {
    if (!PyCallable_Check(fn.ptr())) throw py::type_error("zvstats.register: fn is not callable");
    release(name);
    ServedSlot slot(new ServedFunction{fn}, [](ServedFunction* p) {
        if (!Py_IsInitialized()) return;  // at process exit: nothing left to release into
        py::gil_scoped_acquire gil;
        delete p;
    });
    servedByName[name] = slot;
    // The host calls it on the thread that called the gateway, which let go
    // of the GIL for the call.
    zvhost::registerFunction(name, [slot, name](int nout, ndArray** out, int nin, const ndArray** in) {
        py::gil_scoped_acquire gil;
        py::object fn = slot->fn;
        if (!fn) raiseHostError("zvhost:UndefinedFunction", {name});
        serve(fn, nout, out, nin, in);
    });
}

void unregisterPython(const std::string& name) {
    release(name);
    zvhost::unregisterFunction(name);
}

// ---- console capture ----------------------------------------------------------------

class Capture {
public:
    Capture& enter() {
        if (live_) throw py::value_error("zvstats.capture: already entered");
        live_ = std::make_unique<zvhost::ConsoleCapture>();
        return *this;
    }
    void exit() {
        if (!live_) return;
        text_ = live_->text();
        flushes_ = live_->flushes();
        live_.reset();
    }
    std::string text() const { return live_ ? live_->text() : text_; }
    long flushes() const { return live_ ? live_->flushes() : flushes_; }

private:
    std::unique_ptr<zvhost::ConsoleCapture> live_;
    std::string text_;
    long flushes_ = 0;
};

// ---- small helpers ------------------------------------------------------------------

template <class Draw>
py::array_t<double> drawn(size_t n, Draw&& draw) {
    py::array_t<double> out(static_cast<py::ssize_t>(n));
    if (n > 0) draw(out.mutable_data(), n);
    return out;
}

unsigned allocationKinds(const py::object& kinds) {
    if (PyLong_Check(kinds.ptr())) return kinds.cast<unsigned>();
    static const std::pair<const char*, unsigned> kNames[] = {
        {"scratch", zvhost::kScratch}, {"worker", zvhost::kWorkerScratch},
        {"arrays", zvhost::kArrays}, {"any", zvhost::kAnyAllocation}};
    auto one = [](const std::string& name) {
        for (const auto& [n, k] : kNames)
            if (name == n) return k;
        throw py::value_error("zvstats.fail_allocation_at: unknown kind '" + name + "'");
    };
    if (PyUnicode_Check(kinds.ptr())) return one(kinds.cast<std::string>());
    unsigned mask = 0;
    for (py::handle k : kinds) mask |= one(py::str(k));
    return mask;
}

py::object hostValueContent(const HostValue& v) {
    const ndArray* a = v.array.get();
    const std::string cls = zvhost::className(a);
    if (ndGetClassID(a) == ndFUNCTION_CLASS) return py::str(zvhost::functionHandleName(a));
    if (ndGetClassID(a) == ndOBJECT_CLASS) {
        std::u16string text;
        if (cls == "string" && hostGetScalarText(a, text, 0)) return textOf(text);
        return py::none();
    }
    return toPython(a);
}

}  // namespace

}  // namespace zvpy

PYBIND11_MODULE(_zvstats, m) {
    using namespace zvpy;
    m.doc() = "The compiled core of zvstats; use the zvstats package.";
    registerExceptionTranslation();

    py::class_<HostValue>(m, "Array", "A host value of any class, by class name.")
        .def(py::init([](const std::string& cls, const py::object& shape, const py::object& data) {
                 return HostValue{makeArray(cls, shape, data)};
             }),
             "cls"_a, "shape"_a = py::none(), "data"_a = py::none())
        .def_property_readonly("cls", [](const HostValue& v) { return zvhost::className(v.array.get()); })
        .def_property_readonly("shape", [](const HostValue& v) { return dimensionsOf(v.array.get()); })
        .def_property_readonly("value", &hostValueContent)
        .def("__repr__", [](const HostValue& v) {
            std::string dims;
            for (py::handle d : dimensionsOf(v.array.get())) dims += (dims.empty() ? "" : "x") + py::str(d).cast<std::string>();
            return "<zvstats.Array " + zvhost::className(v.array.get()) + " " + dims + ">";
        });

    py::class_<Stream>(m, "RandStream", "A host random stream (MT19937) from a seed.")
        .def(py::init([](uint32_t seed) { return Stream{zvhost::makeStream(seed)}; }), "seed"_a)
        .def("uniform", [](Stream& s, size_t n) {
            return drawn(n, [&](double* out, size_t k) { s.stream->uniform(out, k); });
        }, "n"_a, "n uniform numbers in (0, 1) from this stream.")
        .def("normal", [](Stream& s, size_t n) {
            return drawn(n, [&](double* out, size_t k) { s.stream->normal(out, k); });
        }, "n"_a, "n standard normal numbers from this stream.")
        .def("__repr__", [](const Stream&) { return std::string("<zvstats.RandStream>"); });

    py::class_<Capture>(m, "Capture", "Console text printed by the host while entered.")
        .def(py::init<>())
        .def("__enter__", &Capture::enter, py::return_value_policy::reference_internal)
        .def("__exit__", [](Capture& c, const py::args&) { c.exit(); return false; })
        .def_property_readonly("text", &Capture::text)
        .def_property_readonly("flushes", &Capture::flushes);

    m.def("_set_host_error_class", &setHostErrorClass);
    m.def("call", &call, "name"_a, "nout"_a,
          "call(name, nout, *inputs): calls the gateway `name` and returns the outputs it set.");
    m.def("register", &registerPython, "name"_a, "fn"_a,
          "Serves the host function `name` with fn(nout, *inputs).");
    m.def("unregister", &unregisterPython, "name"_a, "Removes a host function served by Python.");
    m.def("is_registered", &zvhost::isRegistered, "name"_a);
    m.def("call_log", &zvhost::callLog, "Names of the host functions called since the last reset.");
    m.def("reset_call_log", &zvhost::resetCallLog);
    m.def("list", [] {
        py::list out;
        for (const auto& g : kGateways) out.append(py::make_tuple(g.name, g.implemented));
        return out;
    }, "(name, implemented) for every gateway of the library.");
    m.def("is_exported", [](const std::string& name) { return library->find(name) != nullptr; }, "name"_a);
    m.def("seed", &zvhost::seedDefaultStream, "n"_a, "Reseeds the host's default stream.");
    m.def("randu", [](size_t n) { return drawn(n, &hostRandu); }, "n"_a,
          "n uniform numbers from the host's default stream.");
    m.def("randn", [](size_t n) { return drawn(n, &hostRandn); }, "n"_a,
          "n standard normal numbers from the host's default stream.");
    m.def("interrupt_after", &zvhost::interruptAfterPolls, "n"_a,
          "The n-th interrupt poll of the next call on this thread raises the interruption.");
    m.def("poll_count", &zvhost::pollCount);
    m.def("reset_poll_count", &zvhost::resetPollCount);
    m.def("usage", [] {
        const zvhost::Usage u = zvhost::usage();
        return py::dict("arrays"_a = u.liveArrays, "scratch"_a = u.liveScratch,
                        "worker_scratch"_a = u.liveWorkerScratch);
    }, "Live host arrays and scratch blocks.");
    m.def("fail_allocation_at", [](long n, const py::object& kinds) {
        pendingFailure = {n > 0 ? n : 0, allocationKinds(kinds)};
    }, "n"_a, "kinds"_a = "any",
          "The n-th host allocation of these kinds made by the next call's gateway fails.");
    m.def("warnings", [] {
        py::list out;
        for (const BaseMsgID& w : zvhost::takeWarnings())
            out.append(py::make_tuple(w.component + ":" + w.id, argsToPython(w)));
        return out;
    }, "The warnings the host received since the last look, as (identifier, args).");
    m.def("host_print", [](const std::string& text, bool flush) {
        hostPrintf("%s", text.c_str());
        if (flush) hostFlush();
    }, "text"_a, "flush"_a = false, "Prints through the host's console, as a gateway does.");

    const std::string path = libraryPath();
    try {
        library = new zvhost::BuiltinsLibrary(path);
        library->initialize();
    } catch (const std::exception& e) {
        throw py::import_error("zvstats: cannot load the builtins library " + path + ": " + e.what());
    }
    m.attr("library_path") = path;
    m.attr("SCRATCH") = unsigned(zvhost::kScratch);
    m.attr("WORKER_SCRATCH") = unsigned(zvhost::kWorkerScratch);
    m.attr("ARRAYS") = unsigned(zvhost::kArrays);
    m.attr("ANY_ALLOCATION") = unsigned(zvhost::kAnyAllocation);
    py::module_::import("atexit").attr("register")(py::cpp_function([] { library->terminate(); }));
}
