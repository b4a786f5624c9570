// The extension classes with a typed value against OpenSSL on the same value bytes:
// constructing a class from its value (OpenSSL: d2i_ of the value's type, and free) and
// setting one field, which stores it and writes the whole value again (OpenSSL: the same
// field replaced in its decoded structure, then i2d_ of the whole value).
//
// OCSP_CRLID and OCSP_SERVICELOC are opaque in OpenSSL 3; their fields are reached through
// the offsets of their public ASN.1 item templates (<openssl/asn1t.h>), which is how
// OpenSSL's own codec reaches them. OpenSSL's decoders keep times as text; ours also parse
// them into a CDateTime.
//
// Only the public headers are used: the file is built into the program that measures the
// installed shared library as well as into the programs linked with the static archive.
#include "extension_operations.h"

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <openssl/asn1t.h>
#include <openssl/ocsp.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>
#include <pki/ocsp/ocsp_extensions.h>
#include <string>
#include <utility>
#include <vector>

using Velmor::CBlob;
using Velmor::CDateTime;
using Velmor::CStringProxy;
using Velmor::ASN1::CAccessDescription;
using Velmor::ASN1::CAuthorityInfoAccessSyntax;
using Velmor::ASN1::CGeneralName;
using namespace Velmor::PKI::OCSP;
using Bytes = std::vector<std::uint8_t>;

namespace velmor_bench {

namespace {

constexpr const char* kUrls[] = {"http://crl.example/ca.crl", "http://crl.example/ca2.crl"};
const CDateTime kTimes[] = {CDateTime(1704164645, 0), CDateTime(1704251045, 0)};

void Require(bool ok, const char* what) {
    if (!ok) {
        std::fprintf(stderr, "setup failed: %s\n", what);
        std::exit(2);
    }
}

Bytes BytesOf(const CBlob& blob) { return Bytes(blob.pbData(), blob.pbData() + blob.cbData()); }

// The DER OpenSSL writes for a structure of item.
Bytes OpenSslDer(const void* structure, const ASN1_ITEM* item) {
    unsigned char* out = nullptr;
    const int length = ASN1_item_i2d(static_cast<const ASN1_VALUE*>(structure), &out, item);
    Require(length > 0, "ASN1_item_i2d");
    Bytes der(out, out + length);
    OPENSSL_free(out);
    return der;
}

// Decodes der as item with OpenSSL; the caller frees it.
template <class T> T* OpenSslDecode(const Bytes& der, const ASN1_ITEM* item) {
    const unsigned char* p = der.data();
    auto* value =
        reinterpret_cast<T*>(ASN1_item_d2i(nullptr, &p, static_cast<long>(der.size()), item));
    Require(value != nullptr && p == der.data() + der.size(), "ASN1_item_d2i of our value");
    return value;
}

// Field index of an opaque OpenSSL structure of item, found by its template's offset.
template <class T> T*& FieldOf(void* structure, const ASN1_ITEM* item, long index) {
    Require(index < item->tcount, "field index");
    return *reinterpret_cast<T**>(static_cast<char*>(structure) + item->templates[index].offset);
}

// ---- the values, made by the library and checked to be OpenSSL's bytes

const CExtCrlID& CrlId() {
    static const CExtCrlID value = [] {
        CExtCrlID crl;
        crl.put_crlUrl(kUrls[0]);
        const unsigned long number = 4242;
        crl.put_crlNum(&number);
        crl.put_crlTime(&kTimes[0]);
        return crl;
    }();
    return value;
}

CAuthorityInfoAccessSyntax Locator(const char* url) {
    CGeneralName uri;
    uri.put_uniformResourceIdentifier(url);
    CAuthorityInfoAccessSyntax locator;
    locator.push_back(CAccessDescription("1.3.6.1.5.5.7.48.1", uri));
    return locator;
}

// CN=Velmor Test CA, O=Velmor, C=DE, and an OCSP responder's URL.
CBlob IssuerName(const char* cn) {
    X509_NAME* name = X509_NAME_new();
    const auto add = [name](const char* field, const char* text) {
        X509_NAME_add_entry_by_txt(name, field, MBSTRING_UTF8,
                                   reinterpret_cast<const unsigned char*>(text), -1, -1, 0);
    };
    add("C", "DE");
    add("O", "Velmor");
    add("CN", cn);
    const Bytes der = OpenSslDer(name, ASN1_ITEM_rptr(X509_NAME));
    X509_NAME_free(name);
    return CBlob(der);
}

const CExtServiceLocator& ServiceLocator() {
    static const CExtServiceLocator value = [] {
        CExtServiceLocator locator;
        const CAuthorityInfoAccessSyntax aia = Locator("http://ocsp.example/");
        locator.put_locator(&aia);
        locator.put_issuer(IssuerName("Velmor Test CA"));
        return locator;
    }();
    return value;
}

const CExtCRLLocator& CrlLocator() {
    static const CExtCRLLocator value = [] {
        Velmor::ASN1::CGeneralNames names;
        CGeneralName uri;
        uri.put_uniformResourceIdentifier(kUrls[0]);
        names.push_back(uri);
        Velmor::ASN1::CDistributionPoint point;
        point.put_fullName(&names);
        Velmor::ASN1::CCRLDistPointsSyntax points;
        points.push_back(point);
        return CExtCRLLocator(points);
    }();
    return value;
}

CAcceptableResponses ResponseTypes() {
    CAcceptableResponses list;
    list.push_back(CStringProxy("1.3.6.1.5.5.7.48.1.1"));
    list.push_back(CStringProxy("1.3.6.1.5.5.7.48.1.5"));
    return list;
}

const CExtAcceptableResponses& AcceptableResponses() {
    static const CExtAcceptableResponses value(ResponseTypes());
    return value;
}

const CExtArchiveCutoff& ArchiveCutoff() {
    static const CExtArchiveCutoff value(kTimes[0]);
    return value;
}

const ASN1_ITEM* CrlIdItem() { return ASN1_ITEM_rptr(OCSP_CRLID); }
const ASN1_ITEM* ServiceLocatorItem() { return ASN1_ITEM_rptr(OCSP_SERVICELOC); }
const ASN1_ITEM* CrlLocatorItem() { return ASN1_ITEM_rptr(CRL_DIST_POINTS); }
const ASN1_ITEM* TimeItem() { return ASN1_ITEM_rptr(ASN1_GENERALIZEDTIME); }
const ASN1_ITEM* SequenceItem() { return ASN1_ITEM_rptr(ASN1_SEQUENCE_ANY); }

// ---- construction from the value: each call makes the object and destroys it

template <class C>
Operation Construct(const std::string& name, const C& sample, const ASN1_ITEM* item) {
    return {"extension construct, " + name,
            [value = sample.get_value()](std::size_t n) {
                for (std::size_t i = 0; i < n; ++i) {
                    const C extension(value);
                    Keep(&extension);
                }
            },
            [der = BytesOf(sample.get_value()), item](std::size_t n) {
                for (std::size_t i = 0; i < n; ++i) {
                    const unsigned char* p = der.data();
                    ASN1_VALUE* value =
                        ASN1_item_d2i(nullptr, &p, static_cast<long>(der.size()), item);
                    Keep(value);
                    ASN1_item_free(value, item);
                }
            }};
}

// ---- setting a field: each call alternates between two values of the field

// A copy of the sample; per call set(extension, turn) stores one field, which writes the
// whole value again, and the value is read.
template <class C, class Set>
std::function<void(std::size_t)> OursSetting(const C& sample, Set set) {
    return [extension = C(sample), set, turn = 0](std::size_t n) mutable {
        for (std::size_t i = 0; i < n; ++i) {
            set(extension, turn ^= 1);
            Keep(extension.get_value().pbData());
        }
    };
}

// Decodes the sample with OpenSSL; per call set(structure, turn) replaces one field, then
// the whole value is encoded.
template <class Set>
std::function<void(std::size_t)> OpenSslSetting(const Bytes& der, const ASN1_ITEM* item, Set set) {
    std::shared_ptr<ASN1_VALUE> structure(
        OpenSslDecode<ASN1_VALUE>(der, item),
        [item](ASN1_VALUE* value) { ASN1_item_free(value, item); });
    return [structure, item, set, turn = 0](std::size_t n) mutable {
        for (std::size_t i = 0; i < n; ++i) {
            set(structure.get(), turn ^= 1);
            unsigned char* out = nullptr;
            const int length = ASN1_item_i2d(structure.get(), &out, item);
            Keep(length);
            OPENSSL_free(out);
        }
    };
}

void AddCrlIdOperations(std::vector<Operation>& operations) {
    const Bytes der = BytesOf(CrlId().get_value());
    operations.push_back(Construct("CrlID", CrlId(), CrlIdItem()));
    operations.push_back(
        {"extension put_crlUrl, CrlID",
         OursSetting(CrlId(), [](CExtCrlID& e, int turn) { e.put_crlUrl(kUrls[turn]); }),
         OpenSslSetting(der, CrlIdItem(), [](ASN1_VALUE* v, int turn) {
             ASN1_STRING_set(FieldOf<ASN1_IA5STRING>(v, CrlIdItem(), 0), kUrls[turn], -1);
         })});
    operations.push_back(
        {"extension put_crlNum, CrlID",
         OursSetting(CrlId(),
                     [](CExtCrlID& e, int turn) {
                         const unsigned long number = 4242ul + static_cast<unsigned long>(turn);
                         e.put_crlNum(&number);
                     }),
         OpenSslSetting(der, CrlIdItem(), [](ASN1_VALUE* v, int turn) {
             ASN1_INTEGER_set(FieldOf<ASN1_INTEGER>(v, CrlIdItem(), 1), 4242 + turn);
         })});
    operations.push_back(
        {"extension put_crlTime, CrlID",
         OursSetting(CrlId(), [](CExtCrlID& e, int turn) { e.put_crlTime(&kTimes[turn]); }),
         OpenSslSetting(der, CrlIdItem(), [](ASN1_VALUE* v, int turn) {
             ASN1_GENERALIZEDTIME_set(FieldOf<ASN1_GENERALIZEDTIME>(v, CrlIdItem(), 2),
                                      static_cast<time_t>(kTimes[turn].seconds()));
         })});
}

void AddArchiveCutoffOperations(std::vector<Operation>& operations) {
    operations.push_back(Construct("ArchiveCutoff", ArchiveCutoff(), TimeItem()));
    operations.push_back(
        {"extension put, ArchiveCutoff",
         OursSetting(ArchiveCutoff(),
                     [](CExtArchiveCutoff& e, int turn) { e.put_archiveCutoff(kTimes[turn]); }),
         OpenSslSetting(BytesOf(ArchiveCutoff().get_value()), TimeItem(),
                        [](ASN1_VALUE* v, int turn) {
                            ASN1_GENERALIZEDTIME_set(reinterpret_cast<ASN1_GENERALIZEDTIME*>(v),
                                                     static_cast<time_t>(kTimes[turn].seconds()));
                        })});
}

void AddAcceptableResponsesOperations(std::vector<Operation>& operations) {
    operations.push_back(Construct("AcceptableResponses", AcceptableResponses(), SequenceItem()));
    // The new list of response types: built from texts on both sides.
    const std::array<CAcceptableResponses, 2> lists = {ResponseTypes(),
                                                       CAcceptableResponses(ResponseTypes())};
    operations.push_back({"extension put, AcceptableResponses",
                          OursSetting(AcceptableResponses(),
                                      [lists](CExtAcceptableResponses& e, int turn) {
                                          e.put_acceptableResponses(lists[turn]);
                                      }),
                          OpenSslSetting(BytesOf(AcceptableResponses().get_value()), SequenceItem(),
                                         [](ASN1_VALUE* v, int) {
                                             auto* list = reinterpret_cast<ASN1_SEQUENCE_ANY*>(v);
                                             while (sk_ASN1_TYPE_num(list) > 0) {
                                                 ASN1_TYPE_free(sk_ASN1_TYPE_pop(list));
                                             }
                                             for (const CStringProxy& text : ResponseTypes()) {
                                                 ASN1_TYPE* element = ASN1_TYPE_new();
                                                 ASN1_TYPE_set(element, V_ASN1_OBJECT,
                                                               OBJ_txt2obj(text.c_str(), 1));
                                                 sk_ASN1_TYPE_push(list, element);
                                             }
                                         })});
}

// OpenSSL's own locators, made from its configuration syntax.
std::shared_ptr<AUTHORITY_INFO_ACCESS> OpenSslLocator(const char* url) {
    const std::string text = std::string("OCSP;URI:") + url;
    X509_EXTENSION* extension =
        X509V3_EXT_conf_nid(nullptr, nullptr, NID_info_access, text.c_str());
    auto* locator = static_cast<AUTHORITY_INFO_ACCESS*>(X509V3_EXT_d2i(extension));
    X509_EXTENSION_free(extension);
    Require(locator != nullptr, "an OpenSSL locator");
    return {locator, AUTHORITY_INFO_ACCESS_free};
}

void AddServiceLocatorOperations(std::vector<Operation>& operations) {
    const Bytes der = BytesOf(ServiceLocator().get_value());
    operations.push_back(Construct("ServiceLocator", ServiceLocator(), ServiceLocatorItem()));

    const std::array<CBlob, 2> issuers = {IssuerName("Velmor Test CA"),
                                          IssuerName("Velmor Test CA 2")};
    std::array<std::shared_ptr<X509_NAME>, 2> names;
    for (std::size_t i = 0; i < names.size(); ++i) {
        names[i].reset(OpenSslDecode<X509_NAME>(BytesOf(issuers[i]), ASN1_ITEM_rptr(X509_NAME)),
                       X509_NAME_free);
    }
    operations.push_back(
        {"extension put_issuer, ServiceLocator",
         OursSetting(ServiceLocator(),
                     [issuers](CExtServiceLocator& e, int turn) { e.put_issuer(issuers[turn]); }),
         OpenSslSetting(der, ServiceLocatorItem(), [names](ASN1_VALUE* v, int turn) {
             X509_NAME_set(&FieldOf<X509_NAME>(v, ServiceLocatorItem(), 0), names[turn].get());
         })});

    const std::array<CAuthorityInfoAccessSyntax, 2> locators = {Locator("http://ocsp.example/"),
                                                                Locator("http://ocsp2.example/")};
    const std::array<std::shared_ptr<AUTHORITY_INFO_ACCESS>, 2> theirLocators = {
        OpenSslLocator("http://ocsp.example/"), OpenSslLocator("http://ocsp2.example/")};
    operations.push_back(
        {"extension put_locator, ServiceLocator",
         OursSetting(ServiceLocator(), [locators](CExtServiceLocator& e,
                                                  int turn) { e.put_locator(&locators[turn]); }),
         OpenSslSetting(der, ServiceLocatorItem(),
                        [theirLocators, item = ASN1_ITEM_rptr(AUTHORITY_INFO_ACCESS)](ASN1_VALUE* v,
                                                                                      int turn) {
                            auto*& field =
                                FieldOf<AUTHORITY_INFO_ACCESS>(v, ServiceLocatorItem(), 1);
                            AUTHORITY_INFO_ACCESS_free(field);
                            field = static_cast<AUTHORITY_INFO_ACCESS*>(
                                ASN1_item_dup(item, theirLocators[turn].get()));
                        })});
}

void AddCrlLocatorOperations(std::vector<Operation>& operations) {
    const Bytes der = BytesOf(CrlLocator().get_value());
    operations.push_back(Construct("CRLLocator", CrlLocator(), CrlLocatorItem()));
    const std::array<Velmor::ASN1::CCRLDistPointsSyntax, 2> points = {
        CrlLocator().get_distributionPoints(), CrlLocator().get_distributionPoints()};
    std::shared_ptr<CRL_DIST_POINTS> theirPoints(
        OpenSslDecode<CRL_DIST_POINTS>(der, CrlLocatorItem()), CRL_DIST_POINTS_free);
    operations.push_back(
        {"extension put, CRLLocator",
         OursSetting(CrlLocator(), [points](CExtCRLLocator& e,
                                            int turn) { e.put_distributionPoints(points[turn]); }),
         OpenSslSetting(der, CrlLocatorItem(), [theirPoints](ASN1_VALUE* v, int) {
             auto* copy =
                 static_cast<CRL_DIST_POINTS*>(ASN1_item_dup(CrlLocatorItem(), theirPoints.get()));
             auto* old = reinterpret_cast<CRL_DIST_POINTS*>(v);
             // The structure's own stack keeps its address; its elements are exchanged.
             while (sk_DIST_POINT_num(old) > 0) {
                 DIST_POINT_free(sk_DIST_POINT_pop(old));
             }
             while (sk_DIST_POINT_num(copy) > 0) {
                 sk_DIST_POINT_push(old, sk_DIST_POINT_shift(copy));
             }
             sk_DIST_POINT_free(copy);
         })});
}

// What the comparisons rest on: OpenSSL reads each value and writes it back unchanged, so
// both sides handle the same bytes.
void CheckComparisons() {
    const std::pair<Bytes, const ASN1_ITEM*> values[] = {
        {BytesOf(CrlId().get_value()), CrlIdItem()},
        {BytesOf(ArchiveCutoff().get_value()), TimeItem()},
        {BytesOf(AcceptableResponses().get_value()), SequenceItem()},
        {BytesOf(ServiceLocator().get_value()), ServiceLocatorItem()},
        {BytesOf(CrlLocator().get_value()), CrlLocatorItem()},
    };
    for (const auto& [der, item] : values) {
        ASN1_VALUE* value = OpenSslDecode<ASN1_VALUE>(der, item);
        Require(OpenSslDer(value, item) == der, "OpenSSL writes our value back unchanged");
        ASN1_item_free(value, item);
    }
}

} // namespace

void AddExtensionOperations(std::vector<Operation>& operations) {
    CheckComparisons();
    AddCrlIdOperations(operations);
    AddArchiveCutoffOperations(operations);
    AddAcceptableResponsesOperations(operations);
    AddServiceLocatorOperations(operations);
    AddCrlLocatorOperations(operations);
}

} // namespace velmor_bench
