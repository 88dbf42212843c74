// Host array interface: the array handle, its classes, and every array,
// scratch-memory and size operation that the builtins call on the host.
#pragma once

#include <cstddef>
#include <cstdint>

#define ZV_HOST_API __attribute__((visibility("default")))

struct ndArray;  // opaque host value

typedef int ndClassID;
enum ndComplexity { ndREAL = 0, ndCOMPLEX = 1 };

// The class numbers the library compares or creates.
constexpr ndClassID ndUNKNOWN_CLASS = 0;
constexpr ndClassID ndCELL_CLASS = 1;
constexpr ndClassID ndSTRUCT_CLASS = 2;
constexpr ndClassID ndLOGICAL_CLASS = 3;
constexpr ndClassID ndCHAR_CLASS = 4;
constexpr ndClassID ndVOID_CLASS = 5;
constexpr ndClassID ndDOUBLE_CLASS = 6;
constexpr ndClassID ndSINGLE_CLASS = 7;
constexpr ndClassID ndINT8_CLASS = 8;
constexpr ndClassID ndUINT8_CLASS = 9;
constexpr ndClassID ndINT16_CLASS = 10;
constexpr ndClassID ndUINT16_CLASS = 11;
constexpr ndClassID ndINT32_CLASS = 12;
constexpr ndClassID ndUINT32_CLASS = 13;
constexpr ndClassID ndINT64_CLASS = 14;
constexpr ndClassID ndUINT64_CLASS = 15;
constexpr ndClassID ndFUNCTION_CLASS = 16;
constexpr ndClassID ndOBJECT_CLASS = 17;  // host-defined classes ("string", "gpuArray", streams)

// Reading an array.
ZV_HOST_API ndClassID ndGetClassID(const ndArray* a);
ZV_HOST_API size_t ndGetM(const ndArray* a);
ZV_HOST_API size_t ndGetN(const ndArray* a);
ZV_HOST_API size_t ndGetNumberOfDimensions(const ndArray* a);
ZV_HOST_API const size_t* ndGetDimensions(const ndArray* a);
ZV_HOST_API size_t ndGetNumberOfElements(const ndArray* a);
ZV_HOST_API bool ndIsEmpty(const ndArray* a);
ZV_HOST_API bool ndIsScalar(const ndArray* a);
ZV_HOST_API bool ndIsVector(const ndArray* a);
ZV_HOST_API bool ndIsSparse(const ndArray* a);
ZV_HOST_API bool ndIsComplex(const ndArray* a);
ZV_HOST_API bool ndIsNumeric(const ndArray* a);
ZV_HOST_API bool ndIsClass(const ndArray* a, const char* name);
ZV_HOST_API bool ndIsLogicalScalarTrue(const ndArray* a);
ZV_HOST_API void* ndGetData(const ndArray* a);
ZV_HOST_API size_t* ndGetRowIndices(const ndArray* a);
ZV_HOST_API size_t* ndGetColumnStarts(const ndArray* a);
ZV_HOST_API ndArray* ndGetCell(const ndArray* a, size_t i);
ZV_HOST_API bool* ndGetLogicals(const ndArray* a);
ZV_HOST_API double ndGetScalar(const ndArray* a);
// Copies at most n - 1 characters and a NUL; returns 0 on success, 1 if `a`
// is not text or was cut.
ZV_HOST_API int ndGetString(const ndArray* a, char* buf, size_t n);
ZV_HOST_API size_t ndCalcSingleSubscript(const ndArray* a, size_t nsubs, const size_t* subs);
ZV_HOST_API bool ndIsNaN(double x);
ZV_HOST_API double ndGetEps();
ZV_HOST_API double ndGetInf();
ZV_HOST_API double ndGetNaN();

// Creating and destroying arrays; all raise on exhaustion, none returns null.
ZV_HOST_API ndArray* ndCreateNumericMatrix(size_t m, size_t n, ndClassID cls, ndComplexity c);
ZV_HOST_API ndArray* ndCreateNumericArray(size_t ndim, const size_t* dims, ndClassID cls, ndComplexity c);
ZV_HOST_API ndArray* ndCreateDoubleMatrix(size_t m, size_t n, ndComplexity c);
ZV_HOST_API ndArray* ndCreateLogicalMatrix(size_t m, size_t n);
ZV_HOST_API ndArray* ndCreateDoubleScalar(double x);
ZV_HOST_API ndArray* ndCreateSingleScalar(float x);
ZV_HOST_API ndArray* ndCreateCellMatrix(size_t m, size_t n);
ZV_HOST_API ndArray* ndCreateCharArray(size_t ndim, const size_t* dims);
ZV_HOST_API ndArray* ndCreateString(const char* text);
ZV_HOST_API ndArray* ndDuplicateArray(const ndArray* a);
ZV_HOST_API void ndDestroyArray(ndArray* a);
ZV_HOST_API void ndSetCell(ndArray* c, size_t i, ndArray* e);
ZV_HOST_API void ndSetData(ndArray* a, void* p);
ZV_HOST_API void ndSetPr(ndArray* a, double* p);
ZV_HOST_API void ndSetM(ndArray* a, size_t m);
ZV_HOST_API void ndSetN(ndArray* a, size_t n);
ZV_HOST_API void ndSetArrayScope(ndArray* a, int scope);

// Size arguments in the host's convention: one vector of sizes, or one
// scalar per dimension. Returns the product; *ndim receives the count.
ZV_HOST_API size_t ndGetDims(int count, const ndArray* const* args, size_t* dims, size_t* ndim);
ZV_HOST_API void ndCheckDim(const size_t* dims, size_t ndim, size_t elementBytes);

// Scratch memory tracked per gateway call (host thread only) ...
ZV_HOST_API void* ndMalloc(size_t bytes);
ZV_HOST_API void* ndCalloc(size_t count, size_t size);
ZV_HOST_API void* ndRealloc(void* p, size_t bytes);
ZV_HOST_API void ndFree(void* p);
// ... and the variant for workers, which returns null on exhaustion.
ZV_HOST_API void* ndMallocEx(size_t bytes);
ZV_HOST_API void ndFreeEx(void* p);

// The host's fixed messages: code 2 too few inputs, 3 too many outputs.
[[noreturn]] ZV_HOST_API void ndErrMsg(int code);
