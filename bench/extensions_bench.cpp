// The extension classes with a typed value against OpenSSL on the same value bytes:
// constructing a class from its value (OpenSSL: d2i_ of the value's type, and free) and
// setting one field, which stores it and writes the whole value again (OpenSSL: the same
// field replaced in its decoded structure, then i2d_ of the whole value).
//
// OCSP_CRLID and OCSP_SERVICELOC are opaque in OpenSSL 3; their fields are reached through
// the offsets of their public ASN.1 item templates (<openssl/asn1t.h>), which is how
// OpenSSL's own codec reaches them. OpenSSL's decoders keep times as text; ours also parse
// them into a CDateTime.
#include "alloc_counter.h"
#include "bench_support.h"

#include <benchmark/benchmark.h>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <openssl/asn1t.h>
#include <openssl/ocsp.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>
#include <pki/ocsp/ocsp_extensions.h>
#include <string>
#include <vector>

using Velmor::CBlob;
using Velmor::CDateTime;
using Velmor::CStringProxy;
using Velmor::ASN1::CAccessDescription;
using Velmor::ASN1::CAuthorityInfoAccessSyntax;
using Velmor::ASN1::CGeneralName;
using namespace Velmor::PKI::OCSP;
using Bytes = std::vector<std::uint8_t>;

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

// ---- construction from the value

template <class C> void Construct_Velmor(benchmark::State& state, const C& (*sample)()) {
    const CBlob value = sample().get_value();
    velmor_bench::MeasureWithAllocations(state, [&] {
        const C extension(value);
        benchmark::DoNotOptimize(&extension);
    });
}

void Construct_OpenSSL(benchmark::State& state, const Bytes& der, const ASN1_ITEM* item) {
    velmor_bench::MeasureWithAllocations(state, [&] {
        const unsigned char* p = der.data();
        ASN1_VALUE* value = ASN1_item_d2i(nullptr, &p, static_cast<long>(der.size()), item);
        benchmark::DoNotOptimize(value);
        ASN1_item_free(value, item);
    });
}

template <class C>
void Construct_OpenSSLOf(benchmark::State& state, const C& (*sample)(), const ASN1_ITEM* item) {
    Construct_OpenSSL(state, BytesOf(sample().get_value()), item);
}

// ---- setting a field: each iteration alternates between two values of the field

template <class C, class Set> void Set_Velmor(benchmark::State& state, const C& sample, Set set) {
    C extension(sample);
    int turn = 0;
    velmor_bench::MeasureWithAllocations(state, [&] {
        set(extension, turn ^= 1);
        benchmark::DoNotOptimize(extension.get_value().pbData());
    });
}

// Decodes the sample with OpenSSL; per iteration set(structure, turn) replaces one field,
// then the whole value is encoded.
template <class Set>
void Set_OpenSSL(benchmark::State& state, const Bytes& der, const ASN1_ITEM* item, Set set) {
    ASN1_VALUE* structure = OpenSslDecode<ASN1_VALUE>(der, item);
    int turn = 0;
    velmor_bench::MeasureWithAllocations(state, [&] {
        set(structure, turn ^= 1);
        unsigned char* out = nullptr;
        const int length = ASN1_item_i2d(structure, &out, item);
        benchmark::DoNotOptimize(length);
        OPENSSL_free(out);
    });
    ASN1_item_free(structure, item);
}

const ASN1_ITEM* CrlIdItem() { return ASN1_ITEM_rptr(OCSP_CRLID); }
const ASN1_ITEM* ServiceLocatorItem() { return ASN1_ITEM_rptr(OCSP_SERVICELOC); }
const ASN1_ITEM* CrlLocatorItem() { return ASN1_ITEM_rptr(CRL_DIST_POINTS); }
const ASN1_ITEM* TimeItem() { return ASN1_ITEM_rptr(ASN1_GENERALIZEDTIME); }
const ASN1_ITEM* SequenceItem() { return ASN1_ITEM_rptr(ASN1_SEQUENCE_ANY); }

void CrlUrl_Velmor(benchmark::State& state) {
    Set_Velmor(state, CrlId(), [](CExtCrlID& e, int turn) { e.put_crlUrl(kUrls[turn]); });
}
void CrlUrl_OpenSSL(benchmark::State& state) {
    Set_OpenSSL(state, BytesOf(CrlId().get_value()), CrlIdItem(), [](ASN1_VALUE* v, int turn) {
        ASN1_STRING_set(FieldOf<ASN1_IA5STRING>(v, CrlIdItem(), 0), kUrls[turn], -1);
    });
}

void CrlNum_Velmor(benchmark::State& state) {
    Set_Velmor(state, CrlId(), [](CExtCrlID& e, int turn) {
        const unsigned long number = 4242ul + static_cast<unsigned long>(turn);
        e.put_crlNum(&number);
    });
}
void CrlNum_OpenSSL(benchmark::State& state) {
    Set_OpenSSL(state, BytesOf(CrlId().get_value()), CrlIdItem(), [](ASN1_VALUE* v, int turn) {
        ASN1_INTEGER_set(FieldOf<ASN1_INTEGER>(v, CrlIdItem(), 1), 4242 + turn);
    });
}

void CrlTime_Velmor(benchmark::State& state) {
    Set_Velmor(state, CrlId(), [](CExtCrlID& e, int turn) { e.put_crlTime(&kTimes[turn]); });
}
void CrlTime_OpenSSL(benchmark::State& state) {
    Set_OpenSSL(state, BytesOf(CrlId().get_value()), CrlIdItem(), [](ASN1_VALUE* v, int turn) {
        ASN1_GENERALIZEDTIME_set(FieldOf<ASN1_GENERALIZEDTIME>(v, CrlIdItem(), 2),
                                 static_cast<time_t>(kTimes[turn].seconds()));
    });
}

void Cutoff_Velmor(benchmark::State& state) {
    Set_Velmor(state, ArchiveCutoff(),
               [](CExtArchiveCutoff& e, int turn) { e.put_archiveCutoff(kTimes[turn]); });
}
void Cutoff_OpenSSL(benchmark::State& state) {
    Set_OpenSSL(state, BytesOf(ArchiveCutoff().get_value()), TimeItem(),
                [](ASN1_VALUE* v, int turn) {
                    ASN1_GENERALIZEDTIME_set(reinterpret_cast<ASN1_GENERALIZEDTIME*>(v),
                                             static_cast<time_t>(kTimes[turn].seconds()));
                });
}

// The new list of response types: built from texts on both sides.
void Responses_Velmor(benchmark::State& state) {
    const CAcceptableResponses lists[] = {ResponseTypes(), CAcceptableResponses(ResponseTypes())};
    Set_Velmor(state, AcceptableResponses(), [&lists](CExtAcceptableResponses& e, int turn) {
        e.put_acceptableResponses(lists[turn]);
    });
}
void Responses_OpenSSL(benchmark::State& state) {
    Set_OpenSSL(state, BytesOf(AcceptableResponses().get_value()), SequenceItem(),
                [](ASN1_VALUE* v, int) {
                    auto* list = reinterpret_cast<ASN1_SEQUENCE_ANY*>(v);
                    while (sk_ASN1_TYPE_num(list) > 0) {
                        ASN1_TYPE_free(sk_ASN1_TYPE_pop(list));
                    }
                    for (const CStringProxy& text : ResponseTypes()) {
                        ASN1_TYPE* element = ASN1_TYPE_new();
                        ASN1_TYPE_set(element, V_ASN1_OBJECT, OBJ_txt2obj(text.c_str(), 1));
                        sk_ASN1_TYPE_push(list, element);
                    }
                });
}

const CBlob& Issuer(int turn) {
    static const CBlob names[] = {IssuerName("Velmor Test CA"), IssuerName("Velmor Test CA 2")};
    return names[turn];
}

void Issuer_Velmor(benchmark::State& state) {
    Set_Velmor(state, ServiceLocator(),
               [](CExtServiceLocator& e, int turn) { e.put_issuer(Issuer(turn)); });
}
void Issuer_OpenSSL(benchmark::State& state) {
    X509_NAME* names[2];
    for (int i = 0; i < 2; ++i) {
        const Bytes der = BytesOf(Issuer(i));
        names[i] = OpenSslDecode<X509_NAME>(der, ASN1_ITEM_rptr(X509_NAME));
    }
    Set_OpenSSL(state, BytesOf(ServiceLocator().get_value()), ServiceLocatorItem(),
                [&names](ASN1_VALUE* v, int turn) {
                    X509_NAME_set(&FieldOf<X509_NAME>(v, ServiceLocatorItem(), 0), names[turn]);
                });
    X509_NAME_free(names[0]);
    X509_NAME_free(names[1]);
}

void Locator_Velmor(benchmark::State& state) {
    const CAuthorityInfoAccessSyntax locators[] = {Locator("http://ocsp.example/"),
                                                   Locator("http://ocsp2.example/")};
    Set_Velmor(state, ServiceLocator(),
               [&locators](CExtServiceLocator& e, int turn) { e.put_locator(&locators[turn]); });
}
// OpenSSL's own locators, made from its configuration syntax.
AUTHORITY_INFO_ACCESS* OpenSslLocator(const char* url) {
    const std::string text = std::string("OCSP;URI:") + url;
    X509_EXTENSION* extension =
        X509V3_EXT_conf_nid(nullptr, nullptr, NID_info_access, text.c_str());
    auto* locator = static_cast<AUTHORITY_INFO_ACCESS*>(X509V3_EXT_d2i(extension));
    X509_EXTENSION_free(extension);
    Require(locator != nullptr, "an OpenSSL locator");
    return locator;
}

void Locator_OpenSSL(benchmark::State& state) {
    AUTHORITY_INFO_ACCESS* locators[] = {OpenSslLocator("http://ocsp.example/"),
                                         OpenSslLocator("http://ocsp2.example/")};
    const ASN1_ITEM* item = ASN1_ITEM_rptr(AUTHORITY_INFO_ACCESS);
    Set_OpenSSL(state, BytesOf(ServiceLocator().get_value()), ServiceLocatorItem(),
                [&locators, item](ASN1_VALUE* v, int turn) {
                    auto*& field = FieldOf<AUTHORITY_INFO_ACCESS>(v, ServiceLocatorItem(), 1);
                    AUTHORITY_INFO_ACCESS_free(field);
                    field =
                        static_cast<AUTHORITY_INFO_ACCESS*>(ASN1_item_dup(item, locators[turn]));
                });
    AUTHORITY_INFO_ACCESS_free(locators[0]);
    AUTHORITY_INFO_ACCESS_free(locators[1]);
}

void Points_Velmor(benchmark::State& state) {
    Velmor::ASN1::CCRLDistPointsSyntax points[2] = {CrlLocator().get_distributionPoints(),
                                                    CrlLocator().get_distributionPoints()};
    Set_Velmor(state, CrlLocator(),
               [&points](CExtCRLLocator& e, int turn) { e.put_distributionPoints(points[turn]); });
}
void Points_OpenSSL(benchmark::State& state) {
    const Bytes der = BytesOf(CrlLocator().get_value());
    CRL_DIST_POINTS* points = OpenSslDecode<CRL_DIST_POINTS>(der, CrlLocatorItem());
    Set_OpenSSL(state, der, CrlLocatorItem(), [points](ASN1_VALUE* v, int) {
        auto* copy = static_cast<CRL_DIST_POINTS*>(ASN1_item_dup(CrlLocatorItem(), points));
        auto* old = reinterpret_cast<CRL_DIST_POINTS*>(v);
        // The structure's own stack keeps its address; its elements are exchanged.
        while (sk_DIST_POINT_num(old) > 0) {
            DIST_POINT_free(sk_DIST_POINT_pop(old));
        }
        while (sk_DIST_POINT_num(copy) > 0) {
            sk_DIST_POINT_push(old, sk_DIST_POINT_shift(copy));
        }
        sk_DIST_POINT_free(copy);
    });
    CRL_DIST_POINTS_free(points);
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

BENCHMARK_CAPTURE(Construct_Velmor, crl, CrlId)->Name("CrlID_construct/Velmor");
BENCHMARK_CAPTURE(Construct_OpenSSLOf, crl, CrlId, CrlIdItem())->Name("CrlID_construct/OpenSSL");
BENCHMARK(CrlUrl_Velmor)->Name("CrlID_put_crlUrl/Velmor");
BENCHMARK(CrlUrl_OpenSSL)->Name("CrlID_put_crlUrl/OpenSSL");
BENCHMARK(CrlNum_Velmor)->Name("CrlID_put_crlNum/Velmor");
BENCHMARK(CrlNum_OpenSSL)->Name("CrlID_put_crlNum/OpenSSL");
BENCHMARK(CrlTime_Velmor)->Name("CrlID_put_crlTime/Velmor");
BENCHMARK(CrlTime_OpenSSL)->Name("CrlID_put_crlTime/OpenSSL");
BENCHMARK_CAPTURE(Construct_Velmor, cutoff, ArchiveCutoff)->Name("ArchiveCutoff_construct/Velmor");
BENCHMARK_CAPTURE(Construct_OpenSSLOf, cutoff, ArchiveCutoff, TimeItem())
    ->Name("ArchiveCutoff_construct/OpenSSL");
BENCHMARK(Cutoff_Velmor)->Name("ArchiveCutoff_put/Velmor");
BENCHMARK(Cutoff_OpenSSL)->Name("ArchiveCutoff_put/OpenSSL");
BENCHMARK_CAPTURE(Construct_Velmor, responses, AcceptableResponses)
    ->Name("AcceptableResponses_construct/Velmor");
BENCHMARK_CAPTURE(Construct_OpenSSLOf, responses, AcceptableResponses, SequenceItem())
    ->Name("AcceptableResponses_construct/OpenSSL");
BENCHMARK(Responses_Velmor)->Name("AcceptableResponses_put/Velmor");
BENCHMARK(Responses_OpenSSL)->Name("AcceptableResponses_put/OpenSSL");
BENCHMARK_CAPTURE(Construct_Velmor, locator, ServiceLocator)
    ->Name("ServiceLocator_construct/Velmor");
BENCHMARK_CAPTURE(Construct_OpenSSLOf, locator, ServiceLocator, ServiceLocatorItem())
    ->Name("ServiceLocator_construct/OpenSSL");
BENCHMARK(Issuer_Velmor)->Name("ServiceLocator_put_issuer/Velmor");
BENCHMARK(Issuer_OpenSSL)->Name("ServiceLocator_put_issuer/OpenSSL");
BENCHMARK_CAPTURE(Construct_Velmor, points, CrlLocator)->Name("CRLLocator_construct/Velmor");
BENCHMARK_CAPTURE(Construct_OpenSSLOf, points, CrlLocator, CrlLocatorItem())
    ->Name("CRLLocator_construct/OpenSSL");
BENCHMARK(Locator_Velmor)->Name("ServiceLocator_put_locator/Velmor");
BENCHMARK(Locator_OpenSSL)->Name("ServiceLocator_put_locator/OpenSSL");
BENCHMARK(Points_Velmor)->Name("CRLLocator_put/Velmor");
BENCHMARK(Points_OpenSSL)->Name("CRLLocator_put/OpenSSL");

int main(int argc, char** argv) {
    CheckComparisons();
    return velmor_bench::RunAndCompare(argc, argv);
}
