// Host error interface: message identifier values, the exception family that
// carries them, and the raising and warning entry points.
#pragma once

#include <exception>
#include <new>
#include <string>
#include <variant>
#include <vector>

#include "host/ndarray.hpp"

// A message identifier with its positional arguments. Texts live in the
// host's catalogue; the library ships only component, id and arguments.
class ZV_HOST_API BaseMsgID {
public:
    using Arg = std::variant<long, std::string, std::u16string>;

    BaseMsgID(const char* component, size_t componentLength, const char* id, size_t idLength,
              size_t numArgs);
    BaseMsgID(const BaseMsgID&) = default;
    BaseMsgID& operator=(const BaseMsgID&) = default;
    virtual ~BaseMsgID();

    std::vector<Arg> args;
    std::string component;
    std::string id;
};

namespace bedrock::core::except {

class ZV_HOST_API IException {
public:
    virtual IException* clone() const = 0;
    [[noreturn]] virtual void rethrow() const = 0;
    virtual ~IException();
    // The message text, as the host renders it.
    virtual const char* what() const noexcept;

protected:
    mutable std::string whatText_;
};

class ZV_HOST_API IUserException : public IException {
public:
    virtual std::u16string convert_str(const std::u16string& text) const;
    virtual std::u16string convert_str(const std::string& text) const;
    virtual std::u16string ToUstringImpl() const;
};

class ZV_HOST_API IMsgIDException : public IUserException {
public:
    virtual std::string GetID() const = 0;
    virtual std::u16string GetUnicodeMessageTxt() const;
    virtual const BaseMsgID& GetBaseMsgIDObj() const = 0;

    // component + ":" + id
    std::string get_error_id(const BaseMsgID& msg) const;
};

template <class E, class StdBase, class Extra>
class Exception;

// One instantiation per error class: a full copy of the identifier object and
// its identifier text, computed once when raised.
template <class E>
class Exception<E, std::exception, void> final : public IMsgIDException, public std::exception {
public:
    explicit Exception(const E& msg) : msg_(msg) {}

    Exception* clone() const override { return new Exception(*this); }
    [[noreturn]] void rethrow() const override { throw Exception(*this); }
    ~Exception() override = default;
    const char* what() const noexcept override { return IException::what(); }
    std::string GetID() const override { return errorId_; }
    const BaseMsgID& GetBaseMsgIDObj() const override { return msg_; }

    void setErrorId(std::string id) { errorId_ = std::move(id); }
    const E& msg() const { return msg_; }

private:
    E msg_;
    std::string errorId_;
};

// The host's allocation failure: a std::bad_alloc the caller throws.
class ZV_HOST_API HostBadAlloc : public std::bad_alloc {
public:
    const char* what() const noexcept override;
};
ZV_HOST_API HostBadAlloc bad_alloc();

// Errors the host raises on its own behalf (fixed messages, interruption,
// impossible sizes); they carry an identifier of the host's.
class ZV_HOST_API HostError : public IMsgIDException, public std::exception {
public:
    explicit HostError(const BaseMsgID& msg);
    HostError* clone() const override;
    [[noreturn]] void rethrow() const override;
    ~HostError() override;
    const char* what() const noexcept override;
    std::string GetID() const override;
    const BaseMsgID& GetBaseMsgIDObj() const override;

private:
    BaseMsgID msg_;
};

}  // namespace bedrock::core::except

// The type of the host's fixed messages raised by ndErrMsg.
class ZV_HOST_API ndErrorMessage : public bedrock::core::except::HostError {
public:
    using HostError::HostError;
    ndErrorMessage* clone() const override;
    [[noreturn]] void rethrow() const override;
};

namespace bedrock::ustring {
class ZV_HOST_API CtypeExceptionBase : public std::exception {
public:
    const char* what() const noexcept override;
};
class ZV_HOST_API CtypeInvalidCharacter : public CtypeExceptionBase {
public:
    const char* what() const noexcept override;
};
namespace detail {
[[noreturn]] ZV_HOST_API void throw_ctype_invalid_character_exception();
}
}  // namespace bedrock::ustring

namespace matrix::detail {
// The host's chance to report an error its own way before it is thrown.
ZV_HOST_API void do_legacy_nd_error(const bedrock::core::except::IUserException& e);
}  // namespace matrix::detail

// Raises the identifier object `e`; safe on any thread; never returns.
template <class E>
[[noreturn]] void ndErrMsgId(const E& e) {
    bedrock::core::except::Exception<E, std::exception, void> wrapped(e);
    wrapped.setErrorId(wrapped.get_error_id(e));
    matrix::detail::do_legacy_nd_error(wrapped);
    throw bedrock::core::except::Exception<E, std::exception, void>(wrapped);
}

// Issues a warning under the identifier and returns; safe on workers.
ZV_HOST_API void ndWarningMsgId(const BaseMsgID& id);
