// Calls into the host's language, and the text conversions they need.
#pragma once

#include <exception>
#include <string>

#include "host/ndarray.hpp"

// Calls the host-language function `name`. Returns 0 on success. With trap 1
// a failure returns non-zero instead of unwinding through the caller.
ZV_HOST_API int hostCallFunction(int numOutputs, ndArray** outputs, int numInputs,
                                 const ndArray** inputs, const char* name, int trap);

// A function object of the host's language.
class ZV_HOST_API HostFunction {
public:
    virtual ~HostFunction();
    virtual void operator()(int numOutputs, ndArray** outputs, int numInputs,
                            const ndArray** inputs) = 0;
};
// The function of this name, or null; owned by the host.
ZV_HOST_API HostFunction* hostFindFunction(const std::u16string& name);

// Evaluates without throwing: null on success, else a diagnostic handle.
using HostDiagnostic = std::exception_ptr;
ZV_HOST_API HostDiagnostic hostFunctionCall(int numOutputs, ndArray** outputs, int numInputs,
                                            const ndArray** inputs, const char* name, int flag);
[[noreturn]] ZV_HOST_API void hostThrowFromDiagnostic(const HostDiagnostic* diag, void* context);

// A 12-byte conversion mode record; the library passes zeros.
struct HostStringMode {
    char bytes[12] = {};
};
ZV_HOST_API std::u16string hostGetUStringFromArray(const ndArray* a, size_t index,
                                                   const HostStringMode& mode);
ZV_HOST_API bool hostGetScalarText(const ndArray* a, std::u16string& out, int flag);
ZV_HOST_API std::string hostUstringToString(const std::u16string& text, int flag);
// Throws bedrock::ustring::CtypeInvalidCharacter on a non-ASCII code unit.
ZV_HOST_API std::string hostUstringToAscii(const char16_t* text, size_t n);
ZV_HOST_API std::u16string hostToUstring(const char* text);
