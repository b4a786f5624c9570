// Encoding-level operations: CryptEncodeObject (multi-byte integers) and
// CryptHashToBeSigned.
#include "asn1/pkix_types.h"
#include "foundation/oid_text.h"
#include "platform/crypt_objects.h"

#include <algorithm>
#include <string>
#include <vector>

namespace Velmor::Win32 {

using namespace Detail;

namespace {

// The minimal big-endian two's complement form of a little-endian integer: sign-extension
// octets that DER forbids are dropped; an empty integer is 0.
std::vector<BYTE> MinimalBigEndian(const CRYPT_INTEGER_BLOB& integer) {
    const BYTE* le = integer.pbData;
    std::size_t length = integer.cbData;
    // The most significant octet is the last one; drop it while the next one carries the
    // same sign.
    while (length > 1 && ((le[length - 1] == 0x00 && (le[length - 2] & 0x80) == 0) ||
                          (le[length - 1] == 0xFF && (le[length - 2] & 0x80) != 0))) {
        --length;
    }
    if (length == 0) {
        return {0};
    }
    return {std::reverse_iterator(le + length), std::reverse_iterator(le)};
}

// A signed envelope: SEQUENCE { toBeSigned, AlgorithmIdentifier, BIT STRING }, with the
// to-be-signed element kept exactly as it stands in the input.
struct SignedContent {
    ASN1OpenType toBeSigned;
    ASN1T_AlgorithmIdentifier algorithm;
    ASN1TDynBitStr signature;
};

// Reads one whole signed envelope from buffer's input; 0 or a negative decoder status.
int ReadSignedContent(ASN1BERDecodeBuffer& buffer, SignedContent& content) {
    using Velmor::Asn1Rt::BerReader;
    BerReader input(buffer.getCtxtPtr(), buffer.getBufPtr(), buffer.getBufLen());
    BerReader sequence;
    if (input.enter(ASN1TAG_SEQUENCE, sequence, "signed content")) {
        sequence.readOpenType(content.toBeSigned);
        asn1D(sequence, content.algorithm);
        sequence.readBitStr(content.signature);
        input.leave(sequence);
    }
    if (input.more()) {
        input.fail(RTERR_TRAILING, "after the signed content");
    }
    return input.status();
}

// The digest of the hash of a signature algorithm OID, or null.
const EVP_MD* SignatureDigest(const ASN1OBJID& oid) {
    std::string text;
    return Codec::OidContentsToText(oid.data, oid.numocts, text)
               ? DigestFor(CertOIDToAlgId(text.c_str()))
               : nullptr;
}

} // namespace

BOOL CryptEncodeObject(DWORD encodingType, const char* structType, const void* structInfo,
                       BYTE* encoded, DWORD* encodedSize) {
    if (!IsX509Encoding(encodingType) || structType != X509_MULTI_BYTE_INTEGER) {
        return Fail(ERROR_FILE_NOT_FOUND);
    }
    const auto* integer = static_cast<const CRYPT_INTEGER_BLOB*>(structInfo);
    if (integer == nullptr || encodedSize == nullptr ||
        (integer->pbData == nullptr && integer->cbData != 0)) {
        return Fail(ERROR_INVALID_PARAMETER);
    }
    const std::vector<BYTE> contents = MinimalBigEndian(*integer);
    ASN1BEREncodeBuffer buffer;
    const int length = buffer.putOctStr(contents.data(), contents.size(), ASN1TAG_INTEGER);
    if (length <= 0) {
        return Fail(CRYPT_E_ASN1_MEMORY);
    }
    return CopyOut({buffer.getMsgPtr(), static_cast<std::size_t>(length)}, encoded, encodedSize);
}

BOOL CryptHashToBeSigned(HCRYPTPROV /*provider*/, DWORD encodingType, const BYTE* encoded,
                         DWORD encodedSize, BYTE* hash, DWORD* hashSize) {
    if (!IsX509Encoding(encodingType)) {
        return Fail(ERROR_FILE_NOT_FOUND);
    }
    if (hashSize == nullptr || (encoded == nullptr && encodedSize != 0)) {
        return Fail(ERROR_INVALID_PARAMETER);
    }
    ASN1BERDecodeBuffer buffer(encoded, encodedSize);
    SignedContent content;
    const int status = ReadSignedContent(buffer, content);
    if (status < 0) {
        return Fail(DecodeError(status));
    }
    const EVP_MD* md = SignatureDigest(content.algorithm.algorithm);
    if (md == nullptr) {
        return Fail(NTE_BAD_ALGID);
    }
    BYTE digest[EVP_MAX_MD_SIZE] = {};
    unsigned size = static_cast<unsigned>(EVP_MD_get_size(md));
    // A size query needs no hashing.
    if (hash != nullptr && *hashSize >= size &&
        EVP_Digest(content.toBeSigned.data, content.toBeSigned.numocts, digest, &size, md,
                   nullptr) != 1) {
        return Fail(NTE_BAD_HASH_STATE);
    }
    return CopyOut({digest, size}, hash, hashSize);
}

} // namespace Velmor::Win32
