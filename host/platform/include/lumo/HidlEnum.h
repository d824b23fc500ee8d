#pragma once

// What the interface compiler generates for an enumeration, from one list of its values:
//
//   #define LUMO_MY_VALUES(X) X(FIRST, 1) X(SECOND, 2)
//   namespace ns { LUMO_HIDL_ENUM(My, uint32_t, LUMO_MY_VALUES) }
//   namespace android::hardware::details { LUMO_HIDL_ENUM_VALUES(ns::My, LUMO_MY_VALUES) }
// and in one source file
//   namespace ns { LUMO_HIDL_ENUM_TO_STRING(My, uint32_t, LUMO_MY_VALUES) }

#include <hidl/HidlSupport.h>

#define LUMO_HIDL_ENUMERATOR(name, value) name = (value),
#define LUMO_HIDL_QUALIFIED(name, value) E::name,
#define LUMO_HIDL_COUNT(name, value) +1
#define LUMO_HIDL_NAME_CASE(name, value) \
    case E::name:                        \
        return #name;

// The bitwise operators give the underlying integer, not the enumeration.
#define LUMO_HIDL_BIT_OPERATOR(Enum, Bits, op)                                  \
    constexpr Bits operator op(Enum a, Enum b) {                                \
        return static_cast<Bits>(static_cast<Bits>(a) op static_cast<Bits>(b)); \
    }                                                                           \
    constexpr Bits operator op(Bits a, Enum b) {                                \
        return static_cast<Bits>(a op static_cast<Bits>(b));                    \
    }                                                                           \
    constexpr Bits operator op(Enum a, Bits b) {                                \
        return static_cast<Bits>(static_cast<Bits>(a) op b);                    \
    }                                                                           \
    constexpr Bits& operator op##=(Bits& a, Enum b) {                           \
        return a = static_cast<Bits>(a op static_cast<Bits>(b));                \
    }

#define LUMO_HIDL_ENUM(Enum, Bits, VALUES)                   \
    enum class Enum : Bits { VALUES(LUMO_HIDL_ENUMERATOR) }; \
    std::string toString(Enum value);                        \
    LUMO_HIDL_BIT_OPERATOR(Enum, Bits, |)                    \
    LUMO_HIDL_BIT_OPERATOR(Enum, Bits, &)

#define LUMO_HIDL_ENUM_VALUES(Enum, VALUES)                                           \
    template <>                                                                       \
    inline constexpr auto hidl_enum_values<Enum> = [] {                               \
        using E = Enum;                                                               \
        return std::array<E, 0 VALUES(LUMO_HIDL_COUNT)>{VALUES(LUMO_HIDL_QUALIFIED)}; \
    }();

#define LUMO_HIDL_ENUM_TO_STRING(Enum, Bits, VALUES)                                \
    std::string toString(Enum value) {                                              \
        using E = Enum;                                                             \
        switch (value) { VALUES(LUMO_HIDL_NAME_CASE) }                              \
        return ::android::hardware::details::toHexString(static_cast<Bits>(value)); \
    }
