// CResponderID: its fields, its DER codec, equality of names as names, and the identifier
// of a responder certificate.
#include <pki/ocsp/responder_id.h>

#include "certid/crypt_calls.h"
#include "foundation/codec_frame.h"
#include "platform/crypt_raii.h"
#include "response/response_traits.h"
#include "trace/trace_guard.h"

#include <pki/ocsp/atl_exception.h>
#include <utility>

namespace Velmor::PKI::OCSP {

using namespace Velmor::Win32;

namespace {

// SHA-1 of the public key's bits, hashed by the RSA base provider as a verification
// context; the release of that context is not checked.
CBlob KeyHash(const CRYPT_BIT_BLOB& publicKey) {
    CScopedProvider provider;
    CheckWin32(CryptAcquireContextW(provider.put(), nullptr,
                                    L"Microsoft Base Cryptographic Provider v1.0", PROV_RSA_FULL,
                                    CRYPT_VERIFYCONTEXT));
    CScopedHash hash;
    CheckWin32(CryptCreateHash(provider.get(), CALG_SHA1, 0, 0, hash.put()));
    CheckWin32(CryptHashData(hash.get(), publicKey.pbData, publicKey.cbData, 0));
    return QuerySized([&](BYTE* out, DWORD* size) {
        return CryptGetHashParam(hash.get(), HP_HASHVAL, out, size, 0);
    });
}

CERT_NAME_BLOB NameBlob(const CBlob& name) {
    return CERT_NAME_BLOB{static_cast<DWORD>(name.cbData()), name.pbData()};
}

} // namespace

CResponderID::CResponderID() : m_type(byName) {}

CResponderID::CResponderID(Type type, const CBlob& value) : m_type(type), m_value(value) {}

CResponderID::CResponderID(Type type, CBlob&& value) noexcept
    : m_type(type), m_value(std::move(value)) {}

CResponderID::CResponderID(const CResponderID& other) = default;
CResponderID& CResponderID::operator=(const CResponderID& other) = default;
CResponderID::CResponderID(CResponderID&& other) noexcept = default;
CResponderID& CResponderID::operator=(CResponderID&& other) noexcept = default;
CResponderID::~CResponderID() = default;

CResponderID::Type CResponderID::get_type() const { return m_type; }

const CBlob& CResponderID::get_value() const { return m_value; }

void CResponderID::put_value(Type type, const CBlob& value) {
    m_value = value;
    m_type = type;
}

CBlob CResponderID::encode() const {
    return Trace::Guard("CResponderID::encode",
                        [&] { return Codec::EncodeWith<ASN1T_ResponderID_traits>(*this); });
}

void CResponderID::decode(const CBlob& encoded) {
    Trace::Guard("CResponderID::decode",
                 [&] { Codec::DecodeWith<ASN1T_ResponderID_traits>(encoded, *this); });
}

CResponderID CResponderID::fromCert(Type type, const CBlob& certificate) {
    return Trace::Guard("CResponderID::fromCert", [&] {
        const CScopedCertContext context(ParseCertificate(certificate));
        const CERT_INFO& info = *context.get()->pCertInfo;
        switch (type) {
        case byName:
            return CResponderID(byName, CBlob(info.Subject.pbData, info.Subject.cbData));
        case byKey:
            return CResponderID(byKey, KeyHash(info.SubjectPublicKeyInfo.PublicKey));
        default:
            ATL::AtlThrow(E_INVALIDARG);
        }
    });
}

bool operator==(const CResponderID& a, const CResponderID& b) {
    if (a.get_type() != b.get_type()) {
        return false;
    }
    if (a.get_type() != CResponderID::byName) {
        return a.get_value() == b.get_value();
    }
    const CERT_NAME_BLOB first = NameBlob(a.get_value());
    const CERT_NAME_BLOB second = NameBlob(b.get_value());
    return CertCompareCertificateName(kCertEncoding, &first, &second) != FALSE;
}

bool operator!=(const CResponderID& a, const CResponderID& b) { return !(a == b); }

} // namespace Velmor::PKI::OCSP
