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

// True when the provider implements keys with that ALG_ID (RSA keys by either RSA
// algorithm).
bool ProviderAcceptsKey(const ProviderEntry& provider, ALG_ID keyAlgId) noexcept;

} // namespace Velmor::Win32::Detail

#endif
