// Helpers for tests that drive the ASN.1 types directly: a decoded value that owns its
// input, the DER of a structure as hex, list elements, cut and re-headed inputs.
#ifndef VELMOR_TESTS_SUPPORT_ASN1_TEST_SUPPORT_H
#define VELMOR_TESTS_SUPPORT_ASN1_TEST_SUPPORT_H

#include "asn1/asn1_runtime.h"
#include "asn1/ocsp_types.h"
#include "support/test_support.h"

#include <cctype>
#include <string>
#include <utility>
#include <vector>

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
inline std::string Hex(const ASN1TDynBigInt& v) { return ToHex(v.data, v.numocts); }

// The elements of a decoded list, in order.
template <class T> std::vector<const T*> Elements(const OSRTDList& list) {
    std::vector<const T*> out;
    for (const OSRTDListNode* n = list.head; n != nullptr; n = n->next) {
        out.push_back(static_cast<const T*>(n->data));
    }
    return out;
}

// A decoded INTEGER as openssl and Python print a serial: upper-case hex, without the octets
// that only carry the sign.
inline std::string PrintedSerial(const ASN1TDynBigInt& value) {
    std::string hex = Hex(value);
    while (hex.size() > 2 && hex.compare(0, 2, "00") == 0) {
        hex.erase(0, 2);
    }
    for (char& c : hex) {
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    }
    return hex;
}

// Every proper prefix of input fails to decode as T, as cut off.
template <class T> void ExpectEveryTruncationIsCutOff(const Bytes& input) {
    for (std::size_t size = 0; size < input.size(); ++size) {
        Decoded<T> cut(Bytes(input.begin(), input.begin() + static_cast<std::ptrdiff_t>(size)));
        EXPECT_EQ(cut.status, RTERR_ENDOFBUF) << "cut to " << size << " octets";
    }
}

// The BasicOCSPResponse carried by the OCSPResponse in a fixture file.
inline Bytes BasicResponseOf(const std::string& path) {
    Decoded<ASN1T_OCSPResponse> outer(ReadData(path));
    EXPECT_EQ(outer.status, 0) << path;
    const ASN1TDynOctStr& body = outer.value.responseBytes.response;
    return Bytes(body.data, body.data + body.numocts);
}

// A minimal attribute certificate: holder and issuer by the name CN=A, serial 7, no
// attributes.
inline Bytes AttributeCertificate() {
    const Bytes ecdsaSha256 = FromHex("300a06082a8648ce3d040302");
    const Bytes names = Tlv(0x30, Tlv(0xA4, FromHex("300c310a300806035504030c0141")));
    const Bytes validity = FromHex("3022 180f32303236303130313030303030305a"
                                   " 180f32303237303130313030303030305a");
    const Bytes info = Tlv(
        0x30, Cat({FromHex("020101"), Tlv(0x30, Tlv(0xA0, Cat({names, FromHex("020105")}))),
                   Tlv(0xA0, names), ecdsaSha256, FromHex("020107"), validity, FromHex("3000")}));
    return Tlv(0x30, Cat({info, ecdsaSha256, FromHex("0303000102")}));
}

enum class BerForm { indefinite, longLength };

// der with its outermost element and that element's first child re-headed: both with an
// indefinite length, or both with a four-octet long-form length (der itself is DER).
inline Bytes Reheaded(const Bytes& der, BerForm form) {
    auto header = [&der](std::size_t at, std::size_t& length) {
        const std::uint8_t first = der.at(at + 1);
        const std::size_t count = first < 0x80 ? 0 : first & 0x7F;
        length = first < 0x80 ? first : 0;
        for (std::size_t i = 0; i < count; ++i) {
            length = (length << 8) | der.at(at + 2 + i);
        }
        return 2 + count;
    };
    auto reheader = [form](std::uint8_t tag, const Bytes& content) {
        if (form == BerForm::indefinite) {
            return Cat({Bytes{tag, 0x80}, content, Bytes{0x00, 0x00}});
        }
        const auto n = content.size();
        return Cat({Bytes{tag, 0x84, static_cast<std::uint8_t>(n >> 24),
                          static_cast<std::uint8_t>(n >> 16), static_cast<std::uint8_t>(n >> 8),
                          static_cast<std::uint8_t>(n)},
                    content});
    };
    std::size_t outerLength = 0;
    std::size_t childLength = 0;
    const std::size_t outerHeader = header(0, outerLength);
    const std::size_t childHeader = header(outerHeader, childLength);
    const auto begin = der.begin() + static_cast<std::ptrdiff_t>(outerHeader);
    const auto childEnd = begin + static_cast<std::ptrdiff_t>(childHeader + childLength);
    const Bytes child = reheader(der[outerHeader],
                                 Bytes(begin + static_cast<std::ptrdiff_t>(childHeader), childEnd));
    return reheader(der[0], Cat({child, Bytes(childEnd, der.end())}));
}

} // namespace velmor_test

#endif
