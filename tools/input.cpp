#include "input.h"

#include "exit_status.h"

#include <openssl/x509.h>
#include <pki/ocsp/atl_exception.h>
#include <pki/ocsp/crypt_provider.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace VelmorTool {

using Velmor::CBlob;

namespace {

CBlob BlobOf(const Bytes& bytes) { return CBlob(bytes); }

std::string LabelList(const std::vector<std::string>& labels) {
    std::string text;
    for (const std::string& label : labels) {
        text += (text.empty() ? "\"" : " or \"") + label + "\"";
    }
    return text;
}

// True when der is exactly one X.509 certificate.
bool IsCertificate(const Bytes& der) {
    const unsigned char* p = der.data();
    X509* certificate = d2i_X509(nullptr, &p, static_cast<long>(der.size()));
    const bool whole = certificate != nullptr && p == der.data() + der.size();
    X509_free(certificate);
    return whole;
}

Unarmoured UnarmourFile(const std::string& path, const Bytes& content) {
    try {
        return Unarmour(content);
    } catch (const ArmourError& e) {
        FailFile(path, e.what());
    }
}

// A URI with a scheme ("file:", "pkcs11:", "org.openssl.winstore:") rather than a path.
bool IsUri(const std::string& location) {
    const std::size_t colon = location.find(':');
    if (colon == std::string::npos || colon < 2) { // "C:" would be a one-letter scheme
        return false;
    }
    for (std::size_t i = 0; i < colon; ++i) {
        const char c = location[i];
        const bool letter = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
        if (!letter && (i == 0 || !((c >= '0' && c <= '9') || c == '+' || c == '-' || c == '.'))) {
            return false;
        }
    }
    return true;
}

// The UTF-8 text as wchar_t code points; invalid sequences become U+FFFD, which no
// file name or URI the key loader opens contains.
std::wstring Widen(const std::string& text) {
    std::wstring wide;
    for (std::size_t i = 0; i < text.size();) {
        const auto lead = static_cast<unsigned char>(text[i]);
        const int extra = lead < 0x80    ? 0
                          : lead >= 0xF0 ? 3
                          : lead >= 0xE0 ? 2
                          : lead >= 0xC0 ? 1
                                         : -1;
        if (extra < 0 || i + static_cast<std::size_t>(extra) >= text.size()) {
            wide += L'\uFFFD';
            ++i;
            continue;
        }
        char32_t code = extra == 0 ? lead : lead & (0x3F >> extra);
        bool valid = true;
        for (int k = 1; k <= extra; ++k) {
            const auto next = static_cast<unsigned char>(text[i + static_cast<std::size_t>(k)]);
            valid = valid && (next & 0xC0) == 0x80;
            code = code << 6 | (next & 0x3F);
        }
        wide += valid ? static_cast<wchar_t>(code) : L'\uFFFD';
        i += valid ? static_cast<std::size_t>(extra) + 1 : 1;
    }
    return wide;
}

} // namespace

std::string HresultText(Velmor::Win32::HRESULT hr) { return ATL::CAtlException(hr).what(); }

Bytes ReadFileBytes(const std::string& path, bool allowEmpty) {
    const bool standardInput = path == "-";
    FILE* file = standardInput ? stdin : std::fopen(path.c_str(), "rb");
    if (file == nullptr) {
        FailFile(path, std::string("cannot open: ") + std::strerror(errno));
    }
    Bytes content;
    unsigned char chunk[65536];
    std::size_t got = 0;
    while ((got = std::fread(chunk, 1, sizeof chunk, file)) > 0) {
        content.insert(content.end(), chunk, chunk + got);
    }
    const int error = std::ferror(file) ? errno : 0;
    if (!standardInput) {
        std::fclose(file);
    }
    if (error != 0) {
        FailFile(path, std::string("cannot read: ") + std::strerror(error));
    }
    if (content.empty() && !allowEmpty) {
        FailFile(path, "is empty");
    }
    return content;
}

MessageFile ReadMessageFile(const std::string& path, const std::vector<std::string>& expectedLabels,
                            const std::string& what) {
    return ParseMessageFile(path, ReadFileBytes(path), expectedLabels, what);
}

MessageFile ParseMessageFile(const std::string& path, const Bytes& bytes,
                             const std::vector<std::string>& expectedLabels,
                             const std::string& what) {
    if (bytes.empty()) {
        FailFile(path, "is empty");
    }
    const Unarmoured content = UnarmourFile(path, bytes);
    if (content.blocks.empty()) {
        FailFile(path, "holds no PEM block");
    }
    if (content.blocks.size() > 1) {
        FailFile(path, "holds " + std::to_string(content.blocks.size()) + " PEM blocks; one " +
                           what + " was expected");
    }
    const PemBlock& block = content.blocks.front();
    if (content.armour == Armour::pem) {
        bool fits = false;
        for (const std::string& label : expectedLabels) {
            fits = fits || block.label == label;
        }
        if (!fits) {
            FailFile(path,
                     "holds a PEM \"" + block.label + "\" block, not " + LabelList(expectedLabels));
        }
    }
    return MessageFile{BlobOf(block.der), block.label};
}

Velmor::PKI::OCSP::CBasicResponse DecodeBasicResponse(const std::string& path, const CBlob& body) {
    Velmor::PKI::OCSP::CBasicResponse basic;
    try {
        basic.decode(body);
    } catch (const ATL::CAtlException& e) {
        FailFile(path,
                 std::string("holds a basic response that does not decode (") + e.what() + ")");
    }
    return basic;
}

std::vector<CBlob> ReadCertificates(const std::string& path) {
    const Unarmoured content = UnarmourFile(path, ReadFileBytes(path));
    std::vector<CBlob> certificates;
    for (const PemBlock& block : content.blocks) {
        if (content.armour == Armour::pem && block.label != "CERTIFICATE") {
            FailFile(path, "holds a PEM \"" + block.label + "\" block, not \"CERTIFICATE\"");
        }
        if (!IsCertificate(block.der)) {
            FailFile(path, content.armour == Armour::der
                               ? "is not an X.509 certificate (PEM or DER)"
                               : "holds a block that is not an X.509 certificate");
        }
        certificates.push_back(BlobOf(block.der));
    }
    if (certificates.empty()) {
        FailFile(path, "holds no certificate");
    }
    return certificates;
}

CBlob ReadCertificate(const std::string& path) {
    std::vector<CBlob> certificates = ReadCertificates(path);
    if (certificates.size() != 1) {
        FailFile(path, "holds " + std::to_string(certificates.size()) +
                           " certificates; exactly one was expected");
    }
    return std::move(certificates.front());
}

SigningKey::SigningKey(const std::string& location) : m_location(location) {
    using namespace Velmor::Win32;
    if (!IsUri(location)) {
        ReadFileBytes(location); // says plainly when the file is missing or empty
    }
    const std::wstring container = Widen(location);
    if (CryptAcquireContextW(&m_provider, container.c_str(), nullptr, PROV_RSA_FULL, 0)) {
        m_type = KeyType::rsa;
        return;
    }
    if (CryptAcquireContextW(&m_provider, container.c_str(), nullptr, PROV_EC_ECDSA_FULL, 0)) {
        m_type = KeyType::ec;
        return;
    }
    const HRESULT error = HResultFromWin32(GetLastError());
    m_provider = 0;
    FailFile(location, "is not an unencrypted RSA or EC private key (" + HresultText(error) + ")");
}

SigningKey::~SigningKey() {
    if (m_provider != 0) {
        Velmor::Win32::CryptReleaseContext(m_provider, 0);
    }
}

} // namespace VelmorTool
