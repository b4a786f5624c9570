// Helpers for tests that drive the ASN.1 types directly: a decoded value that owns its
// input, and the DER of a structure as hex.
#ifndef VELMOR_TESTS_SUPPORT_ASN1_TEST_SUPPORT_H
#define VELMOR_TESTS_SUPPORT_ASN1_TEST_SUPPORT_H

#include "asn1/asn1_runtime.h"
#include "support/test_support.h"

#include <string>
#include <utility>

namespace velmor_test {

// A value decoded from its own copy of the input, with the buffer that owns its memory.
template <class T> struct Decoded {
    explicit Decoded(Bytes input) : der(std::move(input)), buffer(der.data(), der.size()) {
        ASN1CTypeT<T> control(buffer, value);
        status = control.Decode();
    }
    Bytes der;
    ASN1BERDecodeBuffer buffer;
    T value{};
    int status = 0;
};

// The DER of value through its control class, or the failure status as "error <n>".
template <class T> std::string EncodeHex(const T& value) {
    ASN1BEREncodeBuffer buffer;
    ASN1CTypeT<T> control(buffer, const_cast<T&>(value));
    const int length = control.Encode();
    return length < 0 ? "error " + std::to_string(length) : ToHex(buffer.getMsgPtr(), length);
}

inline std::string Hex(const ASN1OpenType& v) { return ToHex(v.data, v.numocts); }
inline std::string Hex(const ASN1TDynOctStr& v) { return ToHex(v.data, v.numocts); }
inline std::string Hex(const ASN1OBJID& v) { return ToHex(v.data, v.numocts); }

} // namespace velmor_test

#endif
