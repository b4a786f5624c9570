// Public keys made from their numbers (EVP_PKEY_fromdata) instead of through OpenSSL's
// decoders. A decoder is looked up and set up for every key it reads, which costs more than
// an RSA-2048 signature check; the key of a certificate nearly always comes in one of a few
// plain forms, which are read here. Anything else is left to the decoder, so that what is
// accepted, and how a key that is not accepted fails, stays the decoder's decision.
#include "asn1/asn1_runtime.h"
#include "platform/crypt_keys.h"

#include <algorithm>
#include <array>
#include <bit>
#include <openssl/core_names.h>
#include <openssl/err.h>
#include <string_view>
#include <vector>

namespace Velmor::Win32::Detail {

namespace {

using namespace std::string_view_literals;
using Velmor::Asn1Rt::BerReader;
using Velmor::Asn1Rt::ElementHeader;

enum KeyType : std::size_t { kRsaKey, kEcKey, kKeyTypes };

// A context ready for EVP_PKEY_fromdata, one per key type and thread: making one fetches the
// key management from the provider, a cost best paid once. Freed when the thread ends.
EVP_PKEY_CTX* FromDataContext(KeyType type) noexcept {
    thread_local std::array<PkeyCtxPtr, kKeyTypes> contexts;
    PkeyCtxPtr& context = contexts[type];
    if (context == nullptr) {
        context.reset(EVP_PKEY_CTX_new_from_name(nullptr, type == kRsaKey ? "RSA" : "EC", nullptr));
        if (context != nullptr && EVP_PKEY_fromdata_init(context.get()) != 1) {
            context.reset();
        }
    }
    return context.get();
}

// The public key of type that params describe, or null.
PkeyPtr FromData(KeyType type, OSSL_PARAM* params) noexcept {
    EVP_PKEY_CTX* context = FromDataContext(type);
    EVP_PKEY* key = nullptr;
    if (context == nullptr || EVP_PKEY_fromdata(context, &key, EVP_PKEY_PUBLIC_KEY, params) != 1) {
        return nullptr;
    }
    return PkeyPtr(key);
}

// Octets of a DER identifier (one octet) and length for size contents octets.
std::size_t DerHeaderSize(std::size_t size) noexcept {
    std::size_t octets = 2;
    if (size >= 0x80) {
        for (; size != 0; size >>= 8) {
            ++octets;
        }
    }
    return octets;
}

// The magnitude of an INTEGER's contents when they are a positive number written in the
// fewest octets; empty for zero, a negative number or a redundant leading octet.
std::span<const BYTE> PositiveMagnitude(const ASN1TDynBigInt& value) noexcept {
    std::span<const BYTE> octets(value.data, value.numocts);
    if (octets.empty() || (octets[0] & 0x80) != 0) {
        return {};
    }
    if (octets[0] == 0) {
        if (octets.size() == 1 || (octets[1] & 0x80) == 0) {
            return {};
        }
        octets = octets.subspan(1);
    }
    return octets;
}

struct RsaNumbers {
    std::span<const BYTE> modulus;
    std::span<const BYTE> exponent;
};

// RSAPublicKey ::= SEQUENCE { modulus INTEGER, publicExponent INTEGER }, in DER and with both
// numbers positive; false for anything else.
bool ReadRsaPublicKey(std::span<const BYTE> der, RsaNumbers& numbers) {
    ASN1BERDecodeBuffer buffer(der.data(), der.size());
    BerReader input(buffer.getCtxtPtr(), der.data(), der.size());
    ElementHeader header;
    if (!input.peekHeader(header) || header.indefinite ||
        header.headerLen != DerHeaderSize(header.contentLen) ||
        header.headerLen + header.contentLen != der.size()) {
        return false;
    }
    BerReader sequence;
    ASN1TDynBigInt modulus;
    ASN1TDynBigInt exponent;
    input.enter(ASN1TAG_SEQUENCE, sequence);
    sequence.readBigInt(modulus);
    sequence.readBigInt(exponent);
    input.leave(sequence);
    // The two elements fill the sequence exactly only when their headers are DER's too.
    if (!input.ok() || DerHeaderSize(modulus.numocts) + modulus.numocts +
                               DerHeaderSize(exponent.numocts) + exponent.numocts !=
                           header.contentLen) {
        return false;
    }
    numbers = {PositiveMagnitude(modulus), PositiveMagnitude(exponent)};
    return !numbers.modulus.empty() && !numbers.exponent.empty();
}

// A big-endian magnitude as OpenSSL's unsigned integer parameters take it: in the host's
// byte order.
std::vector<unsigned char> NativeOrder(std::span<const BYTE> bigEndian) {
    std::vector<unsigned char> native(bigEndian.begin(), bigEndian.end());
    if constexpr (std::endian::native == std::endian::little) {
        std::reverse(native.begin(), native.end());
    }
    return native;
}

PkeyPtr RsaKey(const CERT_PUBLIC_KEY_INFO& info) {
    // rsaEncryption's parameters are NULL; some writers leave them out.
    const CRYPT_OBJID_BLOB& parameters = info.Algorithm.Parameters;
    const bool plainParameters =
        parameters.cbData == 0 ||
        (parameters.cbData == 2 && parameters.pbData[0] == 0x05 && parameters.pbData[1] == 0x00);
    RsaNumbers numbers;
    if (!plainParameters ||
        !ReadRsaPublicKey({info.PublicKey.pbData, info.PublicKey.cbData}, numbers)) {
        return nullptr;
    }
    std::vector<unsigned char> modulus = NativeOrder(numbers.modulus);
    std::vector<unsigned char> exponent = NativeOrder(numbers.exponent);
    OSSL_PARAM params[] = {
        OSSL_PARAM_construct_BN(OSSL_PKEY_PARAM_RSA_N, modulus.data(), modulus.size()),
        OSSL_PARAM_construct_BN(OSSL_PKEY_PARAM_RSA_E, exponent.data(), exponent.size()),
        OSSL_PARAM_construct_end(),
    };
    return FromData(kRsaKey, params);
}

struct NamedCurve {
    std::string_view parameters; // the DER OBJECT IDENTIFIER of namedCurve
    const char* group;           // OpenSSL's name of the group
    DWORD pointSize;             // an uncompressed point: 04, x, y
};

constexpr NamedCurve kNamedCurves[] = {
    {"\x06\x08\x2a\x86\x48\xce\x3d\x03\x01\x07"sv, "prime256v1", 65},
    {"\x06\x05\x2b\x81\x04\x00\x22"sv, "secp384r1", 97},
    {"\x06\x05\x2b\x81\x04\x00\x23"sv, "secp521r1", 133},
};

PkeyPtr EcKey(const CERT_PUBLIC_KEY_INFO& info) {
    const std::string_view parameters(
        reinterpret_cast<const char*>(info.Algorithm.Parameters.pbData),
        info.Algorithm.Parameters.cbData);
    const auto curve =
        std::find_if(std::begin(kNamedCurves), std::end(kNamedCurves),
                     [&](const NamedCurve& c) { return c.parameters == parameters; });
    const CRYPT_BIT_BLOB& point = info.PublicKey;
    if (curve == std::end(kNamedCurves) || point.cbData != curve->pointSize ||
        point.pbData[0] != 0x04) {
        return nullptr;
    }
    OSSL_PARAM params[] = {
        OSSL_PARAM_construct_utf8_string(OSSL_PKEY_PARAM_GROUP_NAME,
                                         const_cast<char*>(curve->group), 0),
        OSSL_PARAM_construct_octet_string(OSSL_PKEY_PARAM_PUB_KEY, point.pbData, point.cbData),
        OSSL_PARAM_construct_end(),
    };
    // The point is checked to lie on the curve, as the decoder checks it.
    return FromData(kEcKey, params);
}

} // namespace

PkeyPtr KeyFromParameters(const CERT_PUBLIC_KEY_INFO& info, ALG_ID keyAlgId) {
    if (info.PublicKey.cUnusedBits != 0 || info.PublicKey.cbData == 0) {
        return nullptr;
    }
    // A rejected key leaves nothing on OpenSSL's error queue: the decoder gets its turn.
    ERR_set_mark();
    PkeyPtr key;
    if (keyAlgId == CALG_RSA_KEYX) {
        key = RsaKey(info);
    } else if (keyAlgId == CALG_ECDSA) {
        key = EcKey(info);
    }
    ERR_pop_to_mark();
    return key;
}

} // namespace Velmor::Win32::Detail
