// What the program reads out of X.509 certificates and Names, through OpenSSL's parser: the
// library takes certificates whole and has no interface for their fields.
#ifndef VELMOR_TOOLS_CERTIFICATE_H
#define VELMOR_TOOLS_CERTIFICATE_H

#include <pki/ocsp/blob.h>
#include <pki/ocsp/cert_id.h>

#include <optional>
#include <string>

namespace VelmorTool {

// A Name as one line, its attributes in the order they stand: "C=DE, O=Velmor, CN=Leaf".
// Null when der is not a Name.
std::optional<std::string> NameText(const Velmor::CBlob& der);

struct CertificateFacts {
    std::string subject;
    std::string issuer;
    std::string serialNumber; // upper-case hex, as CBigInteger::ToHex writes it
    std::string notBefore;    // 2026-01-31T12:00:00Z
    std::string notAfter;
    Velmor::CBlob subjectName; // DER, exactly as in the certificate
    Velmor::CBlob issuerName;
};
// Null when der is not a certificate.
std::optional<CertificateFacts> ReadCertificateFacts(const Velmor::CBlob& der);

// The first OCSP responder URL of the certificate's authority information access extension
// (DER certificate); null when it names none.
std::optional<std::string> OcspUrlOf(const Velmor::CBlob& certificate);

// True when issuerCertificate's subject and key identifier fit the issuer of certificate
// (both DER certificates).
bool IsIssuerOf(const Velmor::CBlob& issuerCertificate, const Velmor::CBlob& certificate);

// True when id's issuer name hash and issuer key hash are the hashes of issuerCertificate's
// subject Name and public key, computed with id's own hash algorithm (false for a hash
// OpenSSL does not know).
bool NamesIssuer(const Velmor::PKI::OCSP::CCertID& id, const Velmor::CBlob& issuerCertificate);

// The hashes of an issuer's subject Name and public key that a CertID holds, made with the
// hash hashOid names. Null when issuerCertificate is not a certificate or the hash is unknown.
struct IssuerHashes {
    Velmor::CBlob name;
    Velmor::CBlob key;
};
std::optional<IssuerHashes> IssuerHashesOf(const Velmor::CBlob& issuerCertificate,
                                           const char* hashOid);

// The CertID of serial under issuerCertificate (DER), its issuer name and key hashed with
// the hash hashOid names, which the CertID names with parameters NULL (as OpenSSL and Python
// write them). Null when issuerCertificate is not a certificate or the hash is unknown.
std::optional<Velmor::PKI::OCSP::CCertID> CertIdOf(const Velmor::ASN1::CBigInteger& serial,
                                                   const Velmor::CBlob& issuerCertificate,
                                                   const char* hashOid);

} // namespace VelmorTool

#endif
