// CCertID: value semantics, DER codec and equality. The constructor that hashes two
// certificates is in cert_id_hashing.cpp.
#include <pki/ocsp/cert_id.h>

#include "certid/cert_id_traits.h"
#include "foundation/asn1_traits.h"
#include "foundation/codec_frame.h"
#include "trace/trace_guard.h"

#include <utility>

namespace Velmor::PKI::OCSP {

using namespace Velmor::ASN1;

namespace {
void SetOctets(ASN1CTXT* ctxt, ASN1TDynOctStr& out, const CBlob& value) {
    out.numocts = static_cast<OSUINT32>(value.cbData());
    out.data = Codec::CopyBytes(ctxt, value.pbData(), value.cbData());
}

} // namespace

void ASN1T_CertID_traits::set(ASN1CTXT* ctxt, ASN1T_CertID& out, const CCertID& value) {
    ASN1T_AlgorithmIdentifier_traits::set(ctxt, out.hashAlgorithm, value.get_hashAlgorithm());
    SetOctets(ctxt, out.issuerKeyHash, value.get_issuerKeyHash());
    SetOctets(ctxt, out.issuerNameHash, value.get_issuerNameHash());
    ASN1TDynBigInt_traits::set(ctxt, out.serialNumber, value.get_serialNumber());
}

void ASN1T_CertID_traits::get(const ASN1T_CertID& in, CCertID& value) {
    ASN1T_AlgorithmIdentifier_traits::get(in.hashAlgorithm, value.m_hashAlgorithm);
    value.m_issuerNameHash.assign(in.issuerNameHash.data, in.issuerNameHash.numocts);
    value.m_issuerKeyHash.assign(in.issuerKeyHash.data, in.issuerKeyHash.numocts);
    ASN1TDynBigInt_traits::get(in.serialNumber, value.m_serialNumber);
}

CCertID::CCertID() = default;

CCertID::CCertID(const CAlgorithmIdentifier& hashAlgorithm, const CBlob& issuerNameHash,
                 const CBlob& issuerKeyHash, const CBigInteger& serialNumber)
    : m_hashAlgorithm(hashAlgorithm), m_issuerNameHash(issuerNameHash),
      m_issuerKeyHash(issuerKeyHash), m_serialNumber(serialNumber) {}

CCertID::CCertID(CAlgorithmIdentifier&& hashAlgorithm, CBlob&& issuerNameHash,
                 CBlob&& issuerKeyHash, CBigInteger&& serialNumber) noexcept
    : m_hashAlgorithm(std::move(hashAlgorithm)), m_issuerNameHash(std::move(issuerNameHash)),
      m_issuerKeyHash(std::move(issuerKeyHash)), m_serialNumber(std::move(serialNumber)) {}

CCertID::CCertID(const CCertID& other) = default;

CCertID& CCertID::operator=(const CCertID& other) {
    if (this != &other) {
        m_hashAlgorithm = other.m_hashAlgorithm;
        m_issuerKeyHash = other.m_issuerKeyHash;
        m_issuerNameHash = other.m_issuerNameHash;
        m_serialNumber = other.m_serialNumber;
    }
    return *this;
}

CCertID::CCertID(CCertID&& other) noexcept = default;
CCertID& CCertID::operator=(CCertID&& other) noexcept = default;

CCertID::~CCertID() = default;

CBlob CCertID::encode() const {
    return Trace::Guard("CCertID::encode",
                        [&] { return Codec::EncodeWith<ASN1T_CertID_traits>(*this); });
}

void CCertID::decode(const CBlob& encoded) {
    Trace::Guard("CCertID::decode", [&] {
        // Converted into a fresh CertID, which then replaces this one: nothing changes on
        // failure.
        CCertID decoded;
        Codec::DecodeWith<ASN1T_CertID_traits>(encoded, decoded);
        *this = std::move(decoded);
    });
}

const CAlgorithmIdentifier& CCertID::get_hashAlgorithm() const noexcept { return m_hashAlgorithm; }
const CBlob& CCertID::get_issuerNameHash() const noexcept { return m_issuerNameHash; }
const CBlob& CCertID::get_issuerKeyHash() const noexcept { return m_issuerKeyHash; }
const CBigInteger& CCertID::get_serialNumber() const noexcept { return m_serialNumber; }

void CCertID::put_hashAlgorithm(const CAlgorithmIdentifier& hashAlgorithm) {
    m_hashAlgorithm = hashAlgorithm;
}
void CCertID::put_issuerNameHash(const CBlob& issuerNameHash) { m_issuerNameHash = issuerNameHash; }
void CCertID::put_issuerKeyHash(const CBlob& issuerKeyHash) { m_issuerKeyHash = issuerKeyHash; }
void CCertID::put_serialNumber(const CBigInteger& serialNumber) { m_serialNumber = serialNumber; }

bool operator==(const CCertID& a, const CCertID& b) {
    return a.get_hashAlgorithm() == b.get_hashAlgorithm() &&
           a.get_issuerKeyHash() == b.get_issuerKeyHash() &&
           a.get_issuerNameHash() == b.get_issuerNameHash() &&
           a.get_serialNumber() == b.get_serialNumber();
}

bool operator!=(const CCertID& a, const CCertID& b) { return !(a == b); }

} // namespace Velmor::PKI::OCSP
