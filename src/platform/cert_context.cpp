// Certificate contexts, parsed by the library's own Certificate decoder so that every blob
// of CERT_INFO is the certificate's own bytes; and the comparison of encoded Names.
#include "asn1/pkix_types.h"
#include "foundation/codec_frame.h"
#include "foundation/oid_text.h"
#include "platform/crypt_support.h"

#include <algorithm>
#include <cassert>
#include <cstring>
#include <list>
#include <openssl/err.h>
#include <openssl/x509.h>
#include <pki/ocsp/datetime.h>
#include <string>
#include <string_view>
#include <vector>

namespace Velmor::Win32 {

using namespace Detail;

namespace {

// A context and everything its pointers point to. The blobs point into encoded, which is
// the context's own copy of the certificate, or into copies kept beside it.
struct CertificateRecord : CERT_CONTEXT {
    CertificateRecord() : CERT_CONTEXT{} {}

    CERT_INFO info{};
    std::vector<BYTE> encoded;
    std::vector<BYTE> serialNumber;
    // Every OID text, each followed by its NUL. Reserved for all of them before the first is
    // written, so that the pointers handed out stay valid.
    std::string texts;
    std::list<std::vector<BYTE>> copies; // bytes a BER decoder put outside the input
    std::vector<CERT_EXTENSION> extensions;
};

// A pointer to size decoded bytes that lives as long as the record: into the record's
// encoding when the decoder left them there, else into a copy.
BYTE* Keep(CertificateRecord& record, const ASN1OCTET* data, std::size_t size) {
    if (size == 0) {
        return nullptr;
    }
    const BYTE* begin = record.encoded.data();
    const BYTE* end = begin + record.encoded.size();
    if (std::less_equal<>()(begin, data) && std::less_equal<>()(data + size, end)) {
        return record.encoded.data() + (data - begin);
    }
    return record.copies.emplace_back(data, data + size).data();
}

// The most characters the text of an OID of size contents octets takes, with its NUL: each
// octet carries 7 bits (at most 3 decimal digits) and ends at most one arc (one dot), and
// the first octet's two arcs add "2." at most.
std::size_t OidTextBound(std::size_t size) { return 4 * size + 8; }

char* KeepOid(CertificateRecord& record, const ASN1OBJID& oid) {
    std::string& texts = record.texts;
    const std::size_t start = texts.size();
    assert(texts.capacity() - start >= OidTextBound(oid.numocts));
    Codec::OidContentsToText(oid.data, oid.numocts, texts);
    texts.push_back('\0');
    return texts.data() + start;
}

// Reserves the texts of the two algorithm OIDs and of every extension OID at once.
void ReserveOidTexts(CertificateRecord& record, const ASN1T_TBSCertificate& tbs) {
    std::size_t bound = OidTextBound(tbs.signature.algorithm.numocts) +
                        OidTextBound(tbs.subjectPublicKeyInfo.algorithm.algorithm.numocts);
    std::size_t extensions = 0;
    for (const OSRTDListNode* node = tbs.extensions.head; node != nullptr; node = node->next) {
        bound += OidTextBound(static_cast<const ASN1T_Extension*>(node->data)->extnID.numocts);
        ++extensions;
    }
    record.texts.reserve(bound);
    record.extensions.reserve(extensions);
}

void SetAlgorithm(CertificateRecord& record, const ASN1T_AlgorithmIdentifier& from,
                  CRYPT_ALGORITHM_IDENTIFIER& to) {
    to.pszObjId = KeepOid(record, from.algorithm);
    if (from.m.parametersPresent) {
        to.Parameters = {from.parameters.numocts,
                         Keep(record, from.parameters.data, from.parameters.numocts)};
    }
}

void SetBits(CertificateRecord& record, const ASN1TDynBitStr& from, CRYPT_BIT_BLOB& to) {
    const OSUINT32 size = (from.numbits + 7) / 8;
    to = {size, Keep(record, from.data, size), size * 8 - from.numbits};
}

// The serial number's contents octets in reverse order.
void SetSerialNumber(CertificateRecord& record, const ASN1TDynBigInt& serial) {
    std::vector<BYTE>& bytes = record.serialNumber;
    bytes.assign(serial.data, serial.data + serial.numocts);
    std::reverse(bytes.begin(), bytes.end());
    record.info.SerialNumber = {static_cast<DWORD>(bytes.size()), bytes.data()};
}

// A UTCTime or GeneralizedTime as a FILETIME; false when the text is not a time.
bool ToFileTime(const ASN1T_Time& time, FILETIME& out) {
    const std::string_view value = time.value != nullptr ? time.value : "";
    // RFC 5280: a UTCTime's two-digit years 50-99 are 19xx, 00-49 are 20xx.
    std::string_view century;
    if (time.t == T_Time_utcTime) {
        century = value.size() >= 2 && value.substr(0, 2) >= "50" ? "19" : "20";
    }
    std::string text;
    text.reserve(century.size() + value.size());
    text.append(century).append(value);
    CDateTime parsed;
    if (!CDateTime::TryParseGeneralizedTime(text.c_str(), parsed)) {
        return false;
    }
    constexpr std::int64_t kSecondsFrom1601To1970 = 11644473600;
    const std::int64_t seconds = parsed.seconds() + kSecondsFrom1601To1970;
    if (seconds < 0) {
        return false;
    }
    const auto ticks =
        static_cast<std::uint64_t>(seconds) * 10'000'000u + parsed.nanoseconds() / 100;
    out = {static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
    return true;
}

void SetExtensions(CertificateRecord& record, const ASN1T_Extensions& from) {
    for (const OSRTDListNode* node = from.head; node != nullptr; node = node->next) {
        const auto& extension = *static_cast<const ASN1T_Extension*>(node->data);
        record.extensions.push_back(
            {KeepOid(record, extension.extnID),
             extension.critical ? TRUE : FALSE,
             {extension.extnValue.numocts,
              Keep(record, extension.extnValue.data, extension.extnValue.numocts)}});
    }
    record.info.cExtension = static_cast<DWORD>(record.extensions.size());
    record.info.rgExtension = record.extensions.empty() ? nullptr : record.extensions.data();
}

// The octets of the issuer and subject Names, outer tag and length included, found by
// walking the already decoded certificate once more.
bool SetNames(CertificateRecord& record, ASN1CTXT* ctxt) {
    using Velmor::Asn1Rt::BerReader;
    BerReader input(ctxt, record.encoded.data(), record.encoded.size());
    BerReader certificate;
    BerReader tbs;
    ASN1OpenType issuer;
    ASN1OpenType subject;
    if (input.enter(ASN1TAG_SEQUENCE, certificate) && certificate.enter(ASN1TAG_SEQUENCE, tbs)) {
        if (tbs.nextIs(asn1CtxtConsTag(0))) {
            tbs.skip(); // version
        }
        tbs.skip(); // serialNumber
        tbs.skip(); // signature
        tbs.readOpenType(issuer);
        tbs.skip(); // validity
        tbs.readOpenType(subject);
    }
    record.info.Issuer = {issuer.numocts, Keep(record, issuer.data, issuer.numocts)};
    record.info.Subject = {subject.numocts, Keep(record, subject.data, subject.numocts)};
    return tbs.ok();
}

// Fills the record's CERT_INFO from the decoded TBSCertificate; 0 or the last error to set.
DWORD SetInfo(CertificateRecord& record, const ASN1T_TBSCertificate& tbs, ASN1CTXT* ctxt) {
    CERT_INFO& info = record.info;
    info.dwVersion = tbs.m.versionPresent ? static_cast<DWORD>(tbs.version) : 0;
    ReserveOidTexts(record, tbs);
    SetSerialNumber(record, tbs.serialNumber);
    SetAlgorithm(record, tbs.signature, info.SignatureAlgorithm);
    SetAlgorithm(record, tbs.subjectPublicKeyInfo.algorithm, info.SubjectPublicKeyInfo.Algorithm);
    SetBits(record, tbs.subjectPublicKeyInfo.subjectPublicKey, info.SubjectPublicKeyInfo.PublicKey);
    SetBits(record, tbs.issuerUniqueID, info.IssuerUniqueId);
    SetBits(record, tbs.subjectUniqueID, info.SubjectUniqueId);
    SetExtensions(record, tbs.extensions);
    if (!ToFileTime(tbs.validity.notBefore, info.NotBefore) ||
        !ToFileTime(tbs.validity.notAfter, info.NotAfter) || !SetNames(record, ctxt)) {
        return static_cast<DWORD>(CRYPT_E_ASN1_BADTAG);
    }
    return 0;
}

using NamePtr = std::unique_ptr<X509_NAME, OpenSslFree<X509_NAME_free>>;

// An encoded Name as OpenSSL's X509_NAME (which carries the canonical form used for
// comparison), or null when the blob is not exactly one Name.
NamePtr DecodeName(const CERT_NAME_BLOB& blob) {
    if (blob.pbData == nullptr) {
        return nullptr;
    }
    ERR_set_mark();
    const unsigned char* p = blob.pbData;
    NamePtr name(d2i_X509_NAME(nullptr, &p, static_cast<long>(blob.cbData)));
    ERR_pop_to_mark();
    if (name != nullptr && p != blob.pbData + blob.cbData) {
        name.reset();
    }
    return name;
}

} // namespace

PCCERT_CONTEXT CertCreateCertificateContext(DWORD encodingType, const BYTE* encoded,
                                            DWORD encodedSize) {
    if (!IsX509Encoding(encodingType)) {
        SetLastError(ERROR_FILE_NOT_FOUND);
        return nullptr;
    }
    if (encoded == nullptr && encodedSize != 0) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    auto record = std::make_unique<CertificateRecord>();
    if (encodedSize != 0) {
        record->encoded.assign(encoded, encoded + encodedSize);
    }
    ASN1BERDecodeBuffer buffer(record->encoded.data(), record->encoded.size());
    ASN1T_Certificate certificate;
    const int status = Codec::DecodeStatus(buffer, certificate);
    const DWORD error = status < 0
                            ? DecodeError(status)
                            : SetInfo(*record, certificate.tbsCertificate, buffer.getCtxtPtr());
    if (error != 0) {
        SetLastError(error);
        return nullptr;
    }
    record->dwCertEncodingType = encodingType;
    record->pbCertEncoded = record->encoded.data();
    record->cbCertEncoded = encodedSize;
    record->pCertInfo = &record->info;
    return record.release();
}

BOOL CertFreeCertificateContext(PCCERT_CONTEXT context) {
    delete static_cast<const CertificateRecord*>(context);
    return TRUE;
}

BOOL CertCompareCertificateName(DWORD encodingType, const CERT_NAME_BLOB* name1,
                                const CERT_NAME_BLOB* name2) {
    if (!IsX509Encoding(encodingType)) {
        return Fail(ERROR_FILE_NOT_FOUND);
    }
    if (name1 == nullptr || name2 == nullptr) {
        return Fail(ERROR_INVALID_PARAMETER);
    }
    const NamePtr first = DecodeName(*name1);
    const NamePtr second = DecodeName(*name2);
    if (first == nullptr || second == nullptr) {
        return Fail(CRYPT_E_ASN1_BADTAG);
    }
    return X509_NAME_cmp(first.get(), second.get()) == 0 ? TRUE : FALSE;
}

} // namespace Velmor::Win32
