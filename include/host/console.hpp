// Host console and message catalogue.
#pragma once

#include <ostream>
#include <sstream>
#include <string>

#include "host/except.hpp"
#include "host/ndarray.hpp"

// printf-style output to the host console; host thread only.
ZV_HOST_API int hostPrintf(const char* format, ...) __attribute__((format(printf, 1, 2)));
ZV_HOST_API void hostFlush();

// An ostream built on the stack; its destructor hands the text to the console.
class ZV_HOST_API hostUserOutput : public std::ostream {
public:
    hostUserOutput();
    ~hostUserOutput() override;

private:
    std::stringbuf buffer_;
};

struct HostLocale {
    std::string name;
};
ZV_HOST_API HostLocale hostMessageLocale();

class ZV_HOST_API MessageCatalog {
public:
    static std::u16string get_message(const BaseMsgID& id, const HostLocale& locale);
};
