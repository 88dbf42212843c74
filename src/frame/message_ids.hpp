// The library's message identifier classes, generated from message_ids.def:
// one class per identifier, named after its id, in the namespace that spells
// its component.
#pragma once

#include <cstddef>
#include <string>

#include "host/except.hpp"

namespace zv::frame {

// The component text of a namespace path: "stats::pdistbif" -> "stats:pdistbif".
template <size_t N>
struct ComponentText {
    char text[N]{};
    size_t length = 0;
    constexpr explicit ComponentText(const char (&path)[N]) {
        for (size_t i = 0; i + 1 < N;) {
            if (path[i] == ':' && path[i + 1] == ':') {
                text[length++] = ':';
                i += 2;
            } else if (path[i] == ' ') {
                ++i;
            } else {
                text[length++] = path[i++];
            }
        }
    }
};

}  // namespace zv::frame

#define ZV_ID_BASE(NS, NAME, NARGS)                                                      \
    BaseMsgID(kComponent.text, kComponent.length, #NAME, sizeof(#NAME) - 1, NARGS)

#define ZV_ID_HEAD(NS, NAME)                                                             \
    namespace NS {                                                                       \
    struct NAME : public BaseMsgID {                                                     \
        static constexpr ::zv::frame::ComponentText kComponent{#NS};

#define ZV_ERROR(NS, NAME)                                                               \
    ZV_ID_HEAD(NS, NAME)                                                                 \
    NAME() : ZV_ID_BASE(NS, NAME, 0) {}                                                  \
    };                                                                                   \
    }
#define ZV_ERROR_L(NS, NAME)                                                             \
    ZV_ID_HEAD(NS, NAME)                                                                 \
    explicit NAME(long a0) : ZV_ID_BASE(NS, NAME, 1) { args[0] = a0; }                   \
    };                                                                                   \
    }
#define ZV_ERROR_LL(NS, NAME)                                                            \
    ZV_ID_HEAD(NS, NAME)                                                                 \
    NAME(long a0, long a1) : ZV_ID_BASE(NS, NAME, 2) {                                   \
        args[0] = a0;                                                                    \
        args[1] = a1;                                                                    \
    }                                                                                    \
    };                                                                                   \
    }
#define ZV_ERROR_S(NS, NAME)                                                             \
    ZV_ID_HEAD(NS, NAME)                                                                 \
    explicit NAME(char const* a0) : ZV_ID_BASE(NS, NAME, 1) { args[0] = std::string(a0); } \
    };                                                                                   \
    }
#define ZV_ERROR_SS(NS, NAME)                                                            \
    ZV_ID_HEAD(NS, NAME)                                                                 \
    NAME(char const* a0, char const* a1) : ZV_ID_BASE(NS, NAME, 2) {                     \
        args[0] = std::string(a0);                                                       \
        args[1] = std::string(a1);                                                       \
    }                                                                                    \
    };                                                                                   \
    }
#define ZV_VALUE(NS, NAME) ZV_ERROR(NS, NAME)
#define ZV_VALUE_L(NS, NAME) ZV_ERROR_L(NS, NAME)
#define ZV_VALUE_LL(NS, NAME) ZV_ERROR_LL(NS, NAME)
#define ZV_VALUE_S(NS, NAME) ZV_ERROR_S(NS, NAME)

#include "frame/message_ids.def"

#undef ZV_ERROR
#undef ZV_ERROR_L
#undef ZV_ERROR_LL
#undef ZV_ERROR_S
#undef ZV_ERROR_SS
#undef ZV_VALUE
#undef ZV_VALUE_L
#undef ZV_VALUE_LL
#undef ZV_VALUE_S
#undef ZV_ID_HEAD
#undef ZV_ID_BASE
