// Keys: loading a container's private key, importing public keys, destroying key handles.
#include "platform/crypt_keys.h"

#include "asn1/pkix_types.h"
#include "foundation/oid_text.h"
#include "platform/crypt_objects.h"
#include "platform/key_cache.h"

#include <openssl/err.h>
#include <openssl/store.h>
#include <openssl/ui.h>
#include <openssl/x509.h>
#include <vector>

namespace Velmor::Win32 {

using namespace Detail;

namespace Detail {

namespace {

using StorePtr = std::unique_ptr<OSSL_STORE_CTX, OpenSslFree<OSSL_STORE_close>>;
using StoreInfoPtr = std::unique_ptr<OSSL_STORE_INFO, OpenSslFree<OSSL_STORE_INFO_free>>;

// The first private key the store yields, or null.
PkeyPtr FirstPrivateKey(OSSL_STORE_CTX* store) {
    if (OSSL_STORE_expect(store, OSSL_STORE_INFO_PKEY) != 1) {
        return nullptr;
    }
    while (OSSL_STORE_eof(store) == 0) {
        const StoreInfoPtr info(OSSL_STORE_load(store));
        if (info == nullptr) {
            break; // a failure; the end of the store is seen by OSSL_STORE_eof
        }
        if (OSSL_STORE_INFO_get_type(info.get()) == OSSL_STORE_INFO_PKEY) {
            return PkeyPtr(OSSL_STORE_INFO_get1_PKEY(info.get()));
        }
    }
    return nullptr;
}

} // namespace

PkeyPtr LoadPrivateKey(const std::string& location) {
    // The store's failures are reported as NTE_BAD_KEYSET, so they are taken off OpenSSL's
    // error queue again instead of being left for an unrelated caller to find.
    ERR_set_mark();
    // UI_null: an encrypted key fails instead of prompting on the terminal.
    const StorePtr store(OSSL_STORE_open_ex(location.c_str(), nullptr, nullptr, UI_null(), nullptr,
                                            nullptr, nullptr, nullptr));
    PkeyPtr key = store != nullptr ? FirstPrivateKey(store.get()) : nullptr;
    ERR_pop_to_mark();
    return key;
}

ALG_ID KeyAlgorithm(const EVP_PKEY* key) noexcept {
    if (EVP_PKEY_is_a(key, "RSA") == 1) {
        return CALG_RSA_KEYX;
    }
    if (EVP_PKEY_is_a(key, "EC") == 1) {
        return CALG_ECDSA;
    }
    return 0;
}

bool ProviderAcceptsKey(const ProviderEntry& provider, ALG_ID keyAlgId) noexcept {
    switch (keyAlgId) {
    case CALG_RSA_KEYX:
        return Implements(provider, CALG_RSA_KEYX) || Implements(provider, CALG_RSA_SIGN);
    case CALG_ECDSA:
        return Implements(provider, CALG_ECDSA);
    default:
        return false;
    }
}

} // namespace Detail

namespace {

// The DER SubjectPublicKeyInfo of info, written by the library's own encoder; empty when
// the OID text is not an OID.
std::vector<BYTE> EncodePublicKeyInfo(const CERT_PUBLIC_KEY_INFO& info) {
    const std::string_view oidText = info.Algorithm.pszObjId;
    std::vector<BYTE> oid(oidText.size());
    ASN1T_SubjectPublicKeyInfo structure;
    structure.algorithm.algorithm.numocts =
        static_cast<OSUINT32>(Codec::OidTextToContents(oidText, oid.data()));
    structure.algorithm.algorithm.data = oid.data();
    if (structure.algorithm.algorithm.numocts == 0 || info.PublicKey.cUnusedBits > 7 ||
        (info.PublicKey.cbData == 0 && info.PublicKey.cUnusedBits != 0)) {
        return {};
    }
    structure.algorithm.m.parametersPresent = info.Algorithm.Parameters.cbData != 0;
    structure.algorithm.parameters = {info.Algorithm.Parameters.cbData,
                                      info.Algorithm.Parameters.pbData};
    structure.subjectPublicKey = {info.PublicKey.cbData * 8 - info.PublicKey.cUnusedBits,
                                  info.PublicKey.pbData};
    ASN1BEREncodeBuffer buffer;
    const int length = asn1E(buffer, structure);
    if (length <= 0) {
        return {};
    }
    return {buffer.getMsgPtr(), buffer.getMsgPtr() + length};
}

// The public key of the SubjectPublicKeyInfo der, read by OpenSSL's decoder, or null.
PkeyPtr DecodePublicKey(const std::vector<BYTE>& der) {
    ERR_set_mark();
    const unsigned char* p = der.data();
    PkeyPtr key(d2i_PUBKEY(nullptr, &p, static_cast<long>(der.size())));
    ERR_pop_to_mark();
    return key;
}

// The public key of info, of the algorithm keyAlgId, or null when its bytes are not such a
// key. A key imported before comes from the cache; a new one is made from its numbers when
// it has a plain form, else decoded, and kept in the cache.
PkeyPtr ImportPublicKey(const CERT_PUBLIC_KEY_INFO& info, ALG_ID keyAlgId) {
    const std::vector<BYTE> der = EncodePublicKeyInfo(info);
    if (der.empty()) {
        return nullptr;
    }
    PublicKeyCache& cache = ImportedPublicKeys();
    if (PkeyPtr cached = cache.Find(der)) {
        return cached;
    }
    PkeyPtr key = KeyFromParameters(info, keyAlgId);
    if (key == nullptr) {
        key = DecodePublicKey(der);
    }
    if (key == nullptr || KeyAlgorithm(key.get()) != keyAlgId) {
        return nullptr;
    }
    cache.Insert(der, key.get());
    return key;
}

} // namespace

BOOL CryptImportPublicKeyInfo(HCRYPTPROV provider, DWORD encodingType,
                              const CERT_PUBLIC_KEY_INFO* info, HCRYPTKEY* key) {
    const auto state = ProviderHandles().Find(provider);
    if (state == nullptr) {
        return Fail(NTE_BAD_UID);
    }
    if (!IsX509Encoding(encodingType)) {
        return Fail(ERROR_FILE_NOT_FOUND);
    }
    if (info == nullptr || key == nullptr || info->Algorithm.pszObjId == nullptr ||
        (info->PublicKey.pbData == nullptr && info->PublicKey.cbData != 0)) {
        return Fail(ERROR_INVALID_PARAMETER);
    }
    const PCCRYPT_OID_INFO row = CryptFindOIDInfo(CRYPT_OID_INFO_OID_KEY, info->Algorithm.pszObjId,
                                                  CRYPT_PUBKEY_ALG_OID_GROUP_ID);
    if (row == nullptr || !ProviderAcceptsKey(*state->entry, row->Algid)) {
        return Fail(NTE_BAD_ALGID);
    }
    auto imported = std::make_shared<KeyState>();
    imported->key = ImportPublicKey(*info, row->Algid);
    if (imported->key == nullptr) {
        return Fail(CRYPT_E_ASN1_BADTAG);
    }
    imported->algId = row->Algid;
    *key = KeyHandles().Add(std::move(imported));
    return TRUE;
}

BOOL CryptDestroyKey(HCRYPTKEY key) { return KeyHandles().Release(key) ? TRUE : Fail(NTE_BAD_UID); }

} // namespace Velmor::Win32
