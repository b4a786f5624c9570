// The provider search for an algorithm, certificate hashing, the enumerators' name buffers
// and the ALG_ID cache of CAlgorithmIdentifierEx, with the provider table replaced where a
// search rule needs other providers than the default ones.
#include "certid/algorithm_lookup.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <pki/ocsp/algorithm_identifier_ex.h>
#include <string>
#include <vector>

#include "platform/provider_table.h"
#include "support/test_support.h"

using namespace Velmor;
using namespace Velmor::Win32;
using Velmor::ASN1::CAlgorithmIdentifier;
using Velmor::ASN1::CAlgorithmIdentifierEx;
using Velmor::Win32::Detail::ProviderAlgorithm;
using Velmor::Win32::Detail::ProviderEntry;
using Velmor::Win32::Detail::ProviderTable;
using Velmor::Win32::Detail::ProviderTypeEntry;

namespace {

const char kSha256Oid[] = "2.16.840.1.101.3.4.2.1";
const char kSha256RsaOid[] = "1.2.840.113549.1.1.11";
constexpr ALG_ID CALG_RC4 = 0x6801;

const ProviderAlgorithm kMd5[] = {{CALG_MD5, 128, 128, 128, 0, "MD5", "MD5"}};
const ProviderAlgorithm kSha256[] = {{CALG_SHA_256, 256, 256, 256, 0, "SHA-256", "SHA-256"}};

class ScopedProviderTable {
  public:
    explicit ScopedProviderTable(const ProviderTable& table) : table_(table) {
        Win32::Detail::SetProviderTableForTesting(&table_);
    }
    ~ScopedProviderTable() { Win32::Detail::SetProviderTableForTesting(nullptr); }

  private:
    const ProviderTable table_;
};

std::string ProviderName(HCRYPTPROV provider) {
    char name[1024] = {};
    DWORD size = sizeof name;
    EXPECT_TRUE(CryptGetProvParam(provider, PP_NAME, reinterpret_cast<BYTE*>(name), &size, 0));
    return name;
}

// Releases the handle the caller was given, which must hold exactly one reference.
void ExpectSingleReference(HCRYPTPROV provider) {
    EXPECT_TRUE(CryptReleaseContext(provider, 0));
    EXPECT_FALSE(CryptReleaseContext(provider, 0)) << "the search left a reference behind";
}

// The name of the provider the search finds for algId, whose one reference is released.
std::string FoundProvider(ALG_ID algId) {
    const HCRYPTPROV provider = AcquireContextForAlgId(algId);
    const std::string name = ProviderName(provider);
    ExpectSingleReference(provider);
    return name;
}

// The digest of text by HashBlob, which hashes in the provider the search finds (the
// digests themselves are checked against known answers in the platform tests).
std::string HashHex(ALG_ID algId, const std::string& text) {
    return velmor_test::HexOf(HashBlob(algId, CBlob(text)));
}

std::wstring Widen(const std::string& ascii) { return {ascii.begin(), ascii.end()}; }

// A memory manager that can be told to refuse.
class RefusableHeap final : public ATL::IAtlMemMgr {
  public:
    void* Allocate(std::size_t bytes) noexcept override {
        return refuse ? nullptr : std::malloc(bytes);
    }
    void Free(void* block) noexcept override { std::free(block); }
    void* Reallocate(void* block, std::size_t bytes) noexcept override {
        return refuse ? nullptr : std::realloc(block, bytes);
    }
    std::size_t GetSize(void*) noexcept override { return 0; }
    bool refuse = false;
};

class RecordingProviders : public ATL2::CCryptProvidersEnumT<wchar_t> {
  public:
    explicit RecordingProviders(ATL::IAtlMemMgr* heap, std::size_t stopAfter = 100)
        : CCryptProvidersEnumT(heap), stopAfter_(stopAfter) {}
    bool OnProvider(const wchar_t* name, unsigned long type) override {
        names.emplace_back(name);
        types.push_back(type);
        return names.size() < stopAfter_;
    }
    std::vector<std::wstring> names;
    std::vector<unsigned long> types;

  private:
    std::size_t stopAfter_;
};

} // namespace

// ---- The search on the default table ----------------------------------------------------------

TEST(AcquireContextForAlgId, DefaultTable) {
    EXPECT_EQ(FoundProvider(CALG_SHA_256), "Microsoft Base Cryptographic Provider v1.0");
    EXPECT_EQ(HashHex(CALG_SHA_256, ""),
              "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");

    EXPECT_EQ(FoundProvider(CALG_ECDSA), "Velmor ECDSA Cryptographic Provider");

    // An algorithm no provider implements: the last type's default provider all the same.
    EXPECT_EQ(FoundProvider(CALG_RC4), "Velmor ECDSA Cryptographic Provider");
    EXPECT_HRESULT_THROW(HashBlob(CALG_RC4, CBlob(std::string("abc"))), NTE_BAD_ALGID);

    // ALG_ID 0 (an OID CryptoAPI does not know): an RSA verification context.
    const HCRYPTPROV provider = AcquireContextForAlgId(0);
    DWORD type = 0;
    DWORD size = sizeof type;
    EXPECT_TRUE(CryptGetProvParam(provider, PP_PROVTYPE, reinterpret_cast<BYTE*>(&type), &size, 0));
    EXPECT_EQ(type, PROV_RSA_FULL);
    ExpectSingleReference(provider);
    EXPECT_HRESULT_THROW(HashBlob(0, CBlob(std::string("abc"))), NTE_BAD_ALGID);
}

// ---- The search on replaced tables --------------------------------------------------------

TEST(AcquireContextForAlgId, FirstTypeThatCannotBeOpenedEndsTheSearch) {
    const ProviderTypeEntry types[] = {{1, "Broken type", "Broken"}, {16, "Good type", "Good"}};
    const ProviderEntry providers[] = {{"Broken", 1, ERROR_MOD_NOT_FOUND, kSha256},
                                       {"Good", 16, 0, kSha256}};
    const ScopedProviderTable scope({types, providers});
    EXPECT_HRESULT_THROW(AcquireContextForAlgId(CALG_SHA_256),
                         HResultFromWin32(ERROR_MOD_NOT_FOUND));
    EXPECT_HRESULT_THROW(HashBlob(CALG_SHA_256, CBlob(std::string("abc"))),
                         HResultFromWin32(ERROR_MOD_NOT_FOUND));

    // A type whose default provider is not installed ends it the same way.
    const ProviderTypeEntry dangling[] = {{1, "Dangling", "Not installed"}, {16, "Good", "Good"}};
    const ScopedProviderTable second({dangling, providers});
    EXPECT_HRESULT_THROW(AcquireContextForAlgId(CALG_SHA_256), NTE_KEYSET_NOT_DEF);
}

TEST(AcquireContextForAlgId, FirstDefaultProviderThatImplementsItWins) {
    const ProviderTypeEntry types[] = {
        {5, "Five", "Five"}, {6, "Six", "Six A"}, {7, "Seven", "Seven"}};
    const ProviderEntry providers[] = {{"Five", 5, 0, kMd5},
                                       {"Six B", 6, 0, kSha256}, // not a default: never visited
                                       {"Six A", 6, 0, kSha256},
                                       {"Seven", 7, 0, kSha256}};
    const ScopedProviderTable scope({types, providers});
    EXPECT_EQ(FoundProvider(CALG_SHA_256), "Six A");
    EXPECT_EQ(FoundProvider(CALG_SHA1), "Seven") << "the last type's, which lacks SHA-1";
    EXPECT_HRESULT_THROW(HashBlob(CALG_SHA1, CBlob(std::string("abc"))), NTE_BAD_ALGID);
    EXPECT_EQ(HashHex(CALG_MD5, "abc"), "900150983cd24fb0d6963f7d28e17f72");
}

TEST(AcquireContextForAlgId, WithoutProviderTypesProvidersAreSearchedByName) {
    // A UTF-8 name goes through the wide enumerators and is opened by its wide form.
    const char utf8Name[] = "Sha256 h\xC3\xA9re";
    const ProviderEntry providers[] = {{"Md5 only", 5, 0, kMd5}, {utf8Name, 6, 0, kSha256}};
    const ScopedProviderTable scope({{}, providers});
    EXPECT_EQ(FoundProvider(CALG_SHA_256), utf8Name);
    EXPECT_EQ(FoundProvider(CALG_MD5), "Md5 only");
    EXPECT_EQ(FoundProvider(CALG_SHA1), utf8Name) << "the last provider visited";
    EXPECT_EQ(HashHex(CALG_SHA_256, "abc"),
              "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
}

TEST(AcquireContextForAlgId, NothingInstalledGivesZero) {
    const ScopedProviderTable scope({});
    EXPECT_EQ(AcquireContextForAlgId(CALG_SHA_256), 0u);
    EXPECT_EQ(GetLastError(), ERROR_NO_MORE_ITEMS);
    EXPECT_HRESULT_THROW(HashBlob(CALG_SHA_256, CBlob(std::string("abc"))), 0x80070103u);
    // ALG_ID 0 needs PROV_RSA_FULL, which is not installed either.
    EXPECT_HRESULT_THROW(AcquireContextForAlgId(0), NTE_PROV_TYPE_NOT_DEF);
}

TEST(AcquireContextForAlgId, LongNamesDoNotStopTheSearch) {
    const std::string longType(300, 't');
    const std::string longProvider = "Provider " + std::string(290, 'p');
    const ProviderTypeEntry types[] = {{5, longType.c_str(), longProvider.c_str()},
                                       {6, "Six", "Six"}};
    const ProviderEntry providers[] = {{longProvider.c_str(), 5, 0, kMd5}, {"Six", 6, 0, kSha256}};
    const ScopedProviderTable scope({types, providers});
    EXPECT_EQ(FoundProvider(CALG_SHA_256), "Six");
    EXPECT_EQ(FoundProvider(CALG_MD5), longProvider);
}

// ---- Enumerators ----------------------------------------------------------------------------

TEST(CryptEnumerators, NamesOfEveryLengthAndAllocationFailure) {
    // Short and long names in turn: the name buffer grows to the heap and shrinks back.
    const std::string names[] = {"short", std::string(200, 'L'), "x", std::string(60, 'm'),
                                 std::string(300, 'N')};
    const ProviderEntry providers[] = {{names[0].c_str(), 1, 0, kMd5},
                                       {names[1].c_str(), 2, 0, kMd5},
                                       {names[2].c_str(), 3, 0, kMd5},
                                       {names[3].c_str(), 4, 0, kMd5},
                                       {names[4].c_str(), 5, 0, kMd5}};
    const ScopedProviderTable scope({{}, providers});
    RefusableHeap heap;
    RecordingProviders enumerator(&heap);
    EXPECT_EQ(enumerator.Enumerate(), S_OK);
    ASSERT_EQ(enumerator.names.size(), 5u);
    for (std::size_t i = 0; i < 5; ++i) {
        EXPECT_EQ(enumerator.names[i], Widen(names[i])) << i;
        EXPECT_EQ(enumerator.types[i], i + 1);
    }
    RecordingProviders stopping(&heap, 2);
    EXPECT_EQ(stopping.Enumerate(), S_OK);
    EXPECT_EQ(stopping.names.size(), 2u) << "the callback's false ends the enumeration";

    heap.refuse = true;
    RecordingProviders refused(&heap);
    EXPECT_HRESULT_THROW(refused.Enumerate(), E_OUTOFMEMORY);
    EXPECT_EQ(refused.names.size(), 1u) << "the short name fits the inline buffer";
}

TEST(CryptEnumerators, WideAdapterCountsBytesOfWideCharacters) {
    DWORD type = 0;
    DWORD size = 0;
    ASSERT_TRUE(ATL2::CryptEnumProviderTypesT(1, &type, nullptr, &size));
    EXPECT_EQ(size, sizeof("EC ECDSA Full") * sizeof(wchar_t));
    wchar_t name[64];
    DWORD shortSize = size - 1; // one ANSI byte too few after the division
    EXPECT_FALSE(ATL2::CryptEnumProviderTypesT(1, &type, name, &shortSize));
    EXPECT_EQ(GetLastError(), ERROR_MORE_DATA);
    EXPECT_EQ(shortSize, size);
    ASSERT_TRUE(ATL2::CryptEnumProviderTypesT(1, &type, name, &size));
    EXPECT_EQ(std::wstring(name), L"EC ECDSA Full");
    EXPECT_EQ(type, PROV_EC_ECDSA_FULL);
}

// ---- CAlgorithmIdentifierEx ---------------------------------------------------------------

TEST(CAlgorithmIdentifierEx, CachesTheAlgIdThroughConstReferences) {
    CAlgorithmIdentifierEx identifier(kSha256RsaOid);
    EXPECT_EQ(identifier.get_cachedAlgId(), 0u);
    const CAlgorithmIdentifierEx& view = identifier;
    EXPECT_EQ(view.get_algId(), CALG_SHA_256);
    EXPECT_EQ(identifier.get_cachedAlgId(), CALG_SHA_256);

    EXPECT_EQ(CAlgorithmIdentifierEx(static_cast<const CAlgorithmIdentifier&>(identifier))
                  .get_cachedAlgId(),
              0u);

    CAlgorithmIdentifierEx unknown("1.2.3.4");
    EXPECT_EQ(unknown.get_algId(), 0u);
    EXPECT_EQ(unknown.get_cachedAlgId(), 0u);
}

TEST(CAlgorithmIdentifierEx, PutAlgorithmKeepsTheCacheForTheSameOid) {
    const CBlob null(std::string("\x05\x00", 2));
    CAlgorithmIdentifierEx identifier(kSha256Oid, &null);
    ASSERT_EQ(identifier.get_algId(), CALG_SHA_256);
    // Through the base class, as the certificate reference code sets it.
    CAlgorithmIdentifier& base = identifier;
    base.put_algorithm(kSha256Oid);
    EXPECT_EQ(identifier.get_cachedAlgId(), CALG_SHA_256);
    EXPECT_EQ(identifier.get_parameters(), null) << "nothing else changed";

    base.put_algorithm("2.16.840.1.101.3.4.2.10"); // sharing a prefix is not the same OID
    EXPECT_EQ(identifier.get_cachedAlgId(), 0u);
    EXPECT_STREQ(identifier.get_algorithm(), "2.16.840.1.101.3.4.2.10");
    identifier.put_algorithm("1.3.14.3.2.26");
    EXPECT_EQ(identifier.get_algId(), CALG_SHA1);
    identifier.put_algorithm(nullptr);
    EXPECT_STREQ(identifier.get_algorithm(), "");
    EXPECT_EQ(identifier.get_cachedAlgId(), 0u);
}
