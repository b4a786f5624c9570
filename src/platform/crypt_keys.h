// Private keys of provider containers, and the key algorithms a provider accepts.
#ifndef VELMOR_SRC_PLATFORM_CRYPT_KEYS_H
#define VELMOR_SRC_PLATFORM_CRYPT_KEYS_H

#include "platform/crypt_support.h"
#include "platform/provider_table.h"

#include <string>

namespace Velmor::Win32::Detail {

// The private key at location (a file path or an OSSL_STORE URI; PEM or DER, PKCS#8 or the
// traditional RSA/EC forms), or null. Never prompts for a passphrase.
PkeyPtr LoadPrivateKey(const std::string& location);

// The public-key ALG_ID of a key: CALG_RSA_KEYX for RSA, CALG_ECDSA for EC, 0 otherwise.
ALG_ID KeyAlgorithm(const EVP_PKEY* key) noexcept;

// The public key of info, of the algorithm keyAlgId (CALG_RSA_KEYX or CALG_ECDSA), made from
// its numbers without OpenSSL's decoders; null unless info has one of the plain forms read
// this way: an RSAPublicKey in DER with positive numbers and NULL or absent parameters, or
// an uncompressed point on P-256, P-384 or P-521 named by its OID. A key made here is the
// key the decoder makes of the same info.
PkeyPtr KeyFromParameters(const CERT_PUBLIC_KEY_INFO& info, ALG_ID keyAlgId);

// True when the provider implements keys with that ALG_ID (RSA keys by either RSA
// algorithm).
bool ProviderAcceptsKey(const ProviderEntry& provider, ALG_ID keyAlgId) noexcept;

} // namespace Velmor::Win32::Detail

#endif
