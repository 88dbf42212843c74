// Host errors: identifier values, the exception interface bodies, warnings,
// fixed messages, and the stub message catalogue.
#include <cstdio>
#include <mutex>
#include <utility>

#include "internal.hpp"

namespace bce = bedrock::core::except;

BaseMsgID::BaseMsgID(const char* component_, size_t componentLength, const char* id_,
                     size_t idLength, size_t numArgs)
    : args(numArgs), component(component_, componentLength), id(id_, idLength) {}
BaseMsgID::~BaseMsgID() = default;

bce::IException::~IException() = default;
const char* bce::IException::what() const noexcept {
    try {
        if (auto* m = dynamic_cast<const IMsgIDException*>(this))
            whatText_ = zvhost::messageText(m->GetBaseMsgIDObj());
        else
            whatText_ = "host exception";
    } catch (...) {
        return "host exception";
    }
    return whatText_.c_str();
}

std::u16string bce::IUserException::convert_str(const std::u16string& text) const { return text; }
std::u16string bce::IUserException::convert_str(const std::string& text) const {
    return zvhost::detail::fromUtf8(text);
}
std::u16string bce::IUserException::ToUstringImpl() const {
    return zvhost::detail::fromUtf8(what());
}

std::u16string bce::IMsgIDException::GetUnicodeMessageTxt() const {
    return MessageCatalog::get_message(GetBaseMsgIDObj(), hostMessageLocale());
}
std::string bce::IMsgIDException::get_error_id(const BaseMsgID& msg) const {
    return msg.component + ":" + msg.id;
}

const char* bce::HostBadAlloc::what() const noexcept { return "zvhost:OutOfMemory"; }
bce::HostBadAlloc bce::bad_alloc() { return HostBadAlloc(); }

bce::HostError::HostError(const BaseMsgID& msg) : msg_(msg) {}
bce::HostError* bce::HostError::clone() const { return new HostError(*this); }
void bce::HostError::rethrow() const { throw HostError(*this); }
bce::HostError::~HostError() = default;
const char* bce::HostError::what() const noexcept { return IException::what(); }
std::string bce::HostError::GetID() const { return get_error_id(msg_); }
const BaseMsgID& bce::HostError::GetBaseMsgIDObj() const { return msg_; }

ndErrorMessage* ndErrorMessage::clone() const { return new ndErrorMessage(*this); }
void ndErrorMessage::rethrow() const { throw ndErrorMessage(*this); }

const char* bedrock::ustring::CtypeExceptionBase::what() const noexcept { return "ctype error"; }
const char* bedrock::ustring::CtypeInvalidCharacter::what() const noexcept {
    return "invalid character: text must be ASCII";
}
void bedrock::ustring::detail::throw_ctype_invalid_character_exception() {
    throw CtypeInvalidCharacter();
}

void matrix::detail::do_legacy_nd_error(const bce::IUserException&) {
    // The reference host reports errors where it catches them.
}

namespace {
BaseMsgID hostId(const char* id, std::vector<BaseMsgID::Arg> args = {}) {
    std::string text(id);
    auto colon = text.rfind(':');
    BaseMsgID msg(text.data(), colon, text.data() + colon + 1, text.size() - colon - 1, 0);
    msg.args = std::move(args);
    return msg;
}
}  // namespace

void zvhost::detail::raise(const char* id, std::vector<BaseMsgID::Arg> args) {
    throw bce::HostError(hostId(id, std::move(args)));
}

void ndErrMsg(int code) {
    switch (code) {
    case 2: throw ndErrorMessage(hostId("zvhost:TooFewInputs"));
    case 3: throw ndErrorMessage(hostId("zvhost:TooManyOutputs"));
    default: throw ndErrorMessage(hostId("zvhost:FixedMessage", {long(code)}));
    }
}
void matrix::detail::error_mininputs() { throw ndErrorMessage(hostId("zvhost:TooFewInputs")); }
void matrix::detail::error_maxinputs() { throw ndErrorMessage(hostId("zvhost:TooManyInputs")); }
void matrix::detail::error_maxoutputs() { throw ndErrorMessage(hostId("zvhost:TooManyOutputs")); }

// ---- warnings --------------------------------------------------------------
namespace {
std::mutex warningMutex;
std::vector<BaseMsgID> warnings;
}  // namespace

void ndWarningMsgId(const BaseMsgID& id) {
    std::lock_guard<std::mutex> lock(warningMutex);
    warnings.push_back(id);
}

std::vector<BaseMsgID> zvhost::takeWarnings() {
    std::lock_guard<std::mutex> lock(warningMutex);
    return std::exchange(warnings, {});
}

// ---- the stub catalogue: identifier and arguments in readable form -----------
std::string zvhost::messageText(const BaseMsgID& id) {
    std::string text = id.component + ":" + id.id;
    if (!id.args.empty()) {
        text += " (";
        for (size_t k = 0; k < id.args.size(); ++k) {
            if (k) text += ", ";
            const auto& a = id.args[k];
            if (auto* l = std::get_if<long>(&a)) text += std::to_string(*l);
            else if (auto* s = std::get_if<std::string>(&a)) text += *s;
            else if (auto* u = std::get_if<std::u16string>(&a)) text += detail::toUtf8(*u);
        }
        text += ")";
    }
    return text;
}

std::u16string MessageCatalog::get_message(const BaseMsgID& id, const HostLocale&) {
    return zvhost::detail::fromUtf8(zvhost::messageText(id));
}
HostLocale hostMessageLocale() { return HostLocale{"C"}; }

// ---- text ----------------------------------------------------------------------
std::string zvhost::detail::toUtf8(const std::u16string& s) {
    std::string out;
    for (size_t i = 0; i < s.size(); ++i) {
        uint32_t c = s[i];
        if (c >= 0xD800 && c < 0xDC00 && i + 1 < s.size() && s[i + 1] >= 0xDC00 && s[i + 1] < 0xE000)
            c = 0x10000 + ((c - 0xD800) << 10) + (s[++i] - 0xDC00);
        if (c < 0x80) out += char(c);
        else if (c < 0x800) { out += char(0xC0 | (c >> 6)); out += char(0x80 | (c & 0x3F)); }
        else if (c < 0x10000) {
            out += char(0xE0 | (c >> 12)); out += char(0x80 | ((c >> 6) & 0x3F));
            out += char(0x80 | (c & 0x3F));
        } else {
            out += char(0xF0 | (c >> 18)); out += char(0x80 | ((c >> 12) & 0x3F));
            out += char(0x80 | ((c >> 6) & 0x3F)); out += char(0x80 | (c & 0x3F));
        }
    }
    return out;
}

std::u16string zvhost::detail::fromUtf8(const std::string& s) {
    std::u16string out;
    for (size_t i = 0; i < s.size();) {
        auto b = static_cast<unsigned char>(s[i]);
        uint32_t c;
        size_t extra;
        if (b < 0x80) { c = b; extra = 0; }
        else if ((b >> 5) == 6) { c = b & 0x1F; extra = 1; }
        else if ((b >> 4) == 14) { c = b & 0x0F; extra = 2; }
        else if ((b >> 3) == 30) { c = b & 0x07; extra = 3; }
        else { c = 0xFFFD; extra = 0; }
        ++i;
        for (size_t k = 0; k < extra && i < s.size(); ++k, ++i) c = (c << 6) | (s[i] & 0x3F);
        if (c >= 0x10000) {
            c -= 0x10000;
            out += char16_t(0xD800 + (c >> 10));
            out += char16_t(0xDC00 + (c & 0x3FF));
        } else {
            out += char16_t(c);
        }
    }
    return out;
}
