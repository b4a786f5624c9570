// The OCSP extension classes of Velmor::PKI::OCSP: one class per extension the library knows,
// each a fixed object identifier with its value kept encoded in the CExtValue base, and
// CAcceptableResponses, the list of response types a client accepts.
//
// A class whose value has an ASN.1 syntax also keeps the value's fields decoded, and keeps
// the two in step: the constructor from a blob decodes the blob once, every put_ member
// stores its field and then re-encodes the whole value at once, and the getters read the
// stored fields. A default-constructed extension carries an empty value blob (not the
// encoding of an empty value) until a setter or a typed constructor runs. A setter whose
// encoding fails has already stored its field; the value blob then keeps its previous bytes
// until the next setter that succeeds.
//
// The blob given to a constructor is the extension's value (the contents of extnValue), not
// a whole Extension. Its origin is not checked: each class always carries its own object
// identifier. For a class with a typed value, bytes that are not a value of its syntax (an
// empty blob included) throw CRYPT_E_ASN1_INTERNAL, and no object is made; the nonce and
// the two markers take any bytes. Criticality is left to whoever puts the value into a
// CExtensions list.
#ifndef VELMOR_PKI_OCSP_OCSP_EXTENSIONS_H
#define VELMOR_PKI_OCSP_OCSP_EXTENSIONS_H

#include <pki/ocsp/authority_info_access.h>
#include <pki/ocsp/blob.h>
#include <pki/ocsp/config.h>
#include <pki/ocsp/crl_dist_points.h>
#include <pki/ocsp/datetime.h>
#include <pki/ocsp/dll_list.h>
#include <pki/ocsp/extensions.h>
#include <pki/ocsp/string_proxy.h>

namespace Velmor::PKI::OCSP {

// The response types a client accepts, as dotted object identifier texts in order (such as
// "1.3.6.1.5.5.7.48.1.1", the basic response).
class VELMOR_OCSP_API CAcceptableResponses : public CDllList<CStringProxy> {
  public:
    CAcceptableResponses();
    CAcceptableResponses(const CAcceptableResponses& other);
    CAcceptableResponses& operator=(const CAcceptableResponses& other);
    ~CAcceptableResponses();
};

// id-pkix-ocsp-nonce (1.3.6.1.5.5.7.48.1.2). The nonce is the value blob itself, byte for
// byte: nothing is added or stripped. Peers (OpenSSL, Python's cryptography) send the nonce
// octets wrapped in an OCTET STRING; give and expect that wrapper to talk to them.
class VELMOR_OCSP_API CExtNonce : public ASN1::CExtValue {
  public:
    // An empty nonce.
    CExtNonce();
    explicit CExtNonce(const CBlob& nonce);
    CExtNonce(const CExtNonce& other);
    CExtNonce& operator=(const CExtNonce& other);
    ~CExtNonce() override;

    const CBlob& get_nonce() const;
    void put_nonce(const CBlob& nonce);
};

// The two extensions whose value is a CrlID { crlUrl [0] IA5String, crlNum [1] INTEGER,
// crlTime [2] GeneralizedTime }, all three optional: CExtCrlID and CExtHistoricalRequest,
// which differ only in their object identifier. A getter returns null for an absent field;
// a setter given null removes its field.
class VELMOR_OCSP_API CExtCrlReference : public ASN1::CExtValue {
  public:
    ~CExtCrlReference() override;

    const char* get_crlUrl() const;
    const unsigned long* get_crlNum() const;
    const CDateTime* get_crlTime() const;

    // Stores a copy of the text ("" is a present, empty URL) and re-encodes the value.
    void put_crlUrl(const char* crlUrl);
    // The number is 32-bit on the wire: a value above 0xFFFFFFFF throws E_INVALIDARG and
    // changes nothing. Otherwise stores it and re-encodes the value.
    void put_crlNum(const unsigned long* crlNum);
    // Stores the time and re-encodes the value, written as UTC GeneralizedTime; a time whose
    // year falls outside 0000..9999 cannot be written (E_INVALIDARG).
    void put_crlTime(const CDateTime* crlTime);

  protected:
    // No field, empty value.
    explicit CExtCrlReference(const char* oid);
    // The fields decoded from value, a CrlID.
    CExtCrlReference(const char* oid, const CBlob& value);
    CExtCrlReference(const CExtCrlReference& other);
    CExtCrlReference& operator=(const CExtCrlReference& other);

  private:
    friend struct Detail::Records;
    struct Data;
    void encode();
    void clear();

    Data* m_data;
};

// id-pkix-ocsp-crl (1.3.6.1.5.5.7.48.1.3): the CRL a single response's status was taken
// from.
class VELMOR_OCSP_API CExtCrlID : public CExtCrlReference {
  public:
    CExtCrlID();
    explicit CExtCrlID(const CBlob& value);
    CExtCrlID(const CExtCrlID& other);
    CExtCrlID& operator=(const CExtCrlID& other);
    ~CExtCrlID() override;
};

// 1.2.643.2.2.47.5: a request for the status as of the CRL it names, in the CrlID syntax.
class VELMOR_OCSP_API CExtHistoricalRequest : public CExtCrlReference {
  public:
    CExtHistoricalRequest();
    explicit CExtHistoricalRequest(const CBlob& value);
    CExtHistoricalRequest(const CExtHistoricalRequest& other);
    CExtHistoricalRequest& operator=(const CExtHistoricalRequest& other);
    ~CExtHistoricalRequest() override;
};

// id-pkix-ocsp-archive-cutoff (1.3.6.1.5.5.7.48.1.6): ArchiveCutoff ::= GeneralizedTime.
class VELMOR_OCSP_API CExtArchiveCutoff : public ASN1::CExtValue {
  public:
    // The time is CDateTime(0, 0), the value empty.
    CExtArchiveCutoff();
    // Stores the time and encodes it; throws E_INVALIDARG for a year outside 0000..9999.
    explicit CExtArchiveCutoff(const CDateTime& archiveCutoff);
    explicit CExtArchiveCutoff(const CBlob& value);
    CExtArchiveCutoff(const CExtArchiveCutoff& other);
    CExtArchiveCutoff& operator=(const CExtArchiveCutoff& other);
    ~CExtArchiveCutoff() override;

    const CDateTime& get_archiveCutoff() const;
    void put_archiveCutoff(const CDateTime& archiveCutoff);

  private:
    friend struct Detail::Records;
    struct Data;
    void encode();

    Data* m_data;
};

// id-pkix-ocsp-response (1.3.6.1.5.5.7.48.1.4): AcceptableResponses ::= SEQUENCE OF OBJECT
// IDENTIFIER, in list order. An identifier of more than 128 arcs is read from a value but
// cannot be written (CRYPT_E_ASN1_INTERNAL, as for any text that is not an identifier).
class VELMOR_OCSP_API CExtAcceptableResponses : public ASN1::CExtValue {
  public:
    // An empty list, an empty value.
    CExtAcceptableResponses();
    explicit CExtAcceptableResponses(const CAcceptableResponses& acceptableResponses);
    explicit CExtAcceptableResponses(const CBlob& value);
    CExtAcceptableResponses(const CExtAcceptableResponses& other);
    CExtAcceptableResponses& operator=(const CExtAcceptableResponses& other);
    ~CExtAcceptableResponses() override;

    const CAcceptableResponses& get_acceptableResponses() const;
    // Stores a copy (unless given the object's own list) and re-encodes the value.
    void put_acceptableResponses(const CAcceptableResponses& acceptableResponses);

  private:
    friend struct Detail::Records;
    struct Data;
    void encode();

    Data* m_data;
};

// id-pkix-ocsp-service-locator (1.3.6.1.5.5.7.48.1.7): ServiceLocator ::= SEQUENCE { issuer
// Name, locator AuthorityInfoAccessSyntax OPTIONAL }. A locator that is held but empty is
// not written.
class VELMOR_OCSP_API CExtServiceLocator : public ASN1::CExtValue {
  public:
    // No issuer (an empty blob), no locator, an empty value.
    CExtServiceLocator();
    // The fields decoded from value; the value blob is then their encoding, which equals
    // value when value was already in DER with a non-empty locator or none.
    explicit CExtServiceLocator(const CBlob& value);
    CExtServiceLocator(const CExtServiceLocator& other);
    CExtServiceLocator& operator=(const CExtServiceLocator& other);
    ~CExtServiceLocator() override;

    // The issuer's Name, DER.
    const CBlob& get_issuer() const;
    const ASN1::CAuthorityInfoAccessSyntax* get_locator() const;
    // Stores a copy of the Name and re-encodes the value (E_INVALIDARG for an empty blob,
    // CRYPT_E_ASN1_INTERNAL for one that is not a Name).
    void put_issuer(const CBlob& issuer);
    // Stores a copy of the locator (null removes it). The value is re-encoded only when an
    // issuer is held, so the locator may be set first: until put_issuer the value blob stays
    // as it was.
    void put_locator(const ASN1::CAuthorityInfoAccessSyntax* locator);

  private:
    friend struct Detail::Records;
    struct Data;
    void encode();

    Data* m_data;
};

// 1.2.643.2.2.47.2: where the CRL is found, in the CRL distribution points syntax. The
// constructor from a blob keeps the value bytes as given.
class VELMOR_OCSP_API CExtCRLLocator : public ASN1::CExtValue {
  public:
    // No points, an empty value.
    CExtCRLLocator();
    explicit CExtCRLLocator(const ASN1::CCRLDistPointsSyntax& distributionPoints);
    explicit CExtCRLLocator(const CBlob& value);
    CExtCRLLocator(const CExtCRLLocator& other);
    CExtCRLLocator& operator=(const CExtCRLLocator& other);
    ~CExtCRLLocator() override;

    const ASN1::CCRLDistPointsSyntax& get_distributionPoints() const;
    void put_distributionPoints(const ASN1::CCRLDistPointsSyntax& distributionPoints);

  private:
    friend struct Detail::Records;
    struct Data;
    void encode();

    Data* m_data;
};

// 1.2.643.2.2.47.3: a marker; the value blob is kept as given and read with get_value().
class VELMOR_OCSP_API CExtInstantRevocationIndicator : public ASN1::CExtValue {
  public:
    CExtInstantRevocationIndicator();
    explicit CExtInstantRevocationIndicator(const CBlob& value);
    CExtInstantRevocationIndicator(const CExtInstantRevocationIndicator& other);
    CExtInstantRevocationIndicator& operator=(const CExtInstantRevocationIndicator& other);
    ~CExtInstantRevocationIndicator() override;
};

// 1.2.643.2.2.47.4: a marker; the value blob is kept as given and read with get_value().
class VELMOR_OCSP_API CExtRevocationAnnouncementReference : public ASN1::CExtValue {
  public:
    CExtRevocationAnnouncementReference();
    explicit CExtRevocationAnnouncementReference(const CBlob& value);
    CExtRevocationAnnouncementReference(const CExtRevocationAnnouncementReference& other);
    CExtRevocationAnnouncementReference&
    operator=(const CExtRevocationAnnouncementReference& other);
    ~CExtRevocationAnnouncementReference() override;
};

} // namespace Velmor::PKI::OCSP

#endif
