#include "support/test_support.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <openssl/ocsp.h>
#include <openssl/x509.h>
#include <sys/wait.h>

namespace velmor_test {

std::string DataPath(std::string_view relative) {
    return std::string(VELMOR_TEST_DATA_DIR) + "/" + std::string(relative);
}

Bytes ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        ADD_FAILURE() << "cannot read " << path;
        return {};
    }
    return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

Bytes ReadData(std::string_view relative) { return ReadFile(DataPath(relative)); }

std::string ToHex(const std::uint8_t* data, std::size_t size) {
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    text.reserve(size * 2);
    for (std::size_t i = 0; i < size; ++i) {
        text.push_back(kDigits[data[i] >> 4]);
        text.push_back(kDigits[data[i] & 0x0F]);
    }
    return text;
}

std::string ToHex(const Bytes& bytes) { return ToHex(bytes.data(), bytes.size()); }

namespace {
int HexDigit(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    if (c >= 'A' && c <= 'F') {
        return c - 'A' + 10;
    }
    return -1;
}
} // namespace

Bytes FromHex(std::string_view hex) {
    Bytes bytes;
    int high = -1;
    for (char c : hex) {
        if (c == ' ' || c == '\n' || c == ':') {
            continue;
        }
        const int digit = HexDigit(c);
        if (digit < 0) {
            ADD_FAILURE() << "bad hex digit '" << c << "'";
            return {};
        }
        if (high < 0) {
            high = digit;
        } else {
            bytes.push_back(static_cast<std::uint8_t>(high << 4 | digit));
            high = -1;
        }
    }
    if (high >= 0) {
        ADD_FAILURE() << "odd number of hex digits";
    }
    return bytes;
}

std::string HexOf(const Velmor::CBlob& blob) { return ToHex(blob.pbData(), blob.cbData()); }

Velmor::CBlob BlobOf(std::string_view hex) { return Velmor::CBlob(FromHex(hex)); }

Bytes Cat(std::initializer_list<Bytes> parts) {
    Bytes out;
    for (const Bytes& part : parts) {
        out.insert(out.end(), part.begin(), part.end());
    }
    return out;
}

Bytes Text(std::string_view text) { return Bytes(text.begin(), text.end()); }

Bytes Tlv(std::uint8_t tag, const Bytes& contents) {
    Bytes length;
    for (std::size_t n = contents.size(); n != 0; n >>= 8) {
        length.insert(length.begin(), static_cast<std::uint8_t>(n));
    }
    Bytes header{tag};
    if (contents.size() < 0x80) {
        header.push_back(static_cast<std::uint8_t>(contents.size()));
    } else {
        header.push_back(static_cast<std::uint8_t>(0x80 | length.size()));
        header.insert(header.end(), length.begin(), length.end());
    }
    return Cat({header, contents});
}

int RunCommand(const std::string& command, std::string* output) {
    FILE* pipe = ::popen(command.c_str(), "r");
    if (pipe == nullptr) {
        return -1;
    }
    std::array<char, 4096> chunk{};
    std::size_t got = 0;
    while ((got = std::fread(chunk.data(), 1, chunk.size(), pipe)) > 0) {
        if (output != nullptr) {
            output->append(chunk.data(), got);
        }
    }
    const int status = ::pclose(pipe);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

namespace {
// A private directory for the files peers read and write; removed at process exit.
class ScratchDirectory {
  public:
    ScratchDirectory() {
        std::string pattern = "/tmp/velmor-test-XXXXXX";
        if (::mkdtemp(pattern.data()) != nullptr) {
            path_ = pattern;
        }
    }
    ~ScratchDirectory() {
        if (!path_.empty()) {
            std::error_code ignored;
            std::filesystem::remove_all(path_, ignored);
        }
    }
    const std::string& path() const { return path_; }

  private:
    std::string path_;
};

::testing::AssertionResult HaveCommand(const std::string& probe, const std::string& what,
                                       const std::string& package) {
    if (RunCommand(probe + " >/dev/null 2>&1") == 0) {
        return ::testing::AssertionSuccess();
    }
    return ::testing::AssertionFailure()
           << what << " is needed as a peer for this test and was not found; install it with "
           << "'apt-get install " << package << "'";
}
} // namespace

std::string WriteTempFile(const Bytes& bytes, std::string_view name) {
    static ScratchDirectory directory;
    const std::string path = directory.path() + "/" + std::string(name);
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(bytes.data()),
              static_cast<std::streamsize>(bytes.size()));
    if (!out) {
        ADD_FAILURE() << "cannot write " << path;
    }
    return path;
}

std::string Python() { return VELMOR_PYTHON; }

::testing::AssertionResult HaveOpenssl() {
    return HaveCommand("openssl version", "The openssl command", "openssl");
}

::testing::AssertionResult HavePythonCryptography() {
    return HaveCommand(Python() + " -c 'import cryptography.x509.ocsp'",
                       "Python 3 with the cryptography package", "python3-cryptography");
}

bool OpensslVerifiesRequest(const Velmor::CBlob& request, const Velmor::CBlob& signer) {
    const unsigned char* p = request.pbData();
    const std::unique_ptr<OCSP_REQUEST, decltype(&OCSP_REQUEST_free)> parsed(
        d2i_OCSP_REQUEST(nullptr, &p, static_cast<long>(request.cbData())), OCSP_REQUEST_free);
    p = signer.pbData();
    const std::unique_ptr<X509, decltype(&X509_free)> certificate(
        d2i_X509(nullptr, &p, static_cast<long>(signer.cbData())), X509_free);
    if (!parsed || !certificate) {
        return false;
    }
    STACK_OF(X509)* certs = sk_X509_new_null();
    sk_X509_push(certs, certificate.get());
    X509_STORE* store = X509_STORE_new();
    const int result =
        OCSP_request_verify(parsed.get(), certs, store, OCSP_NOINTERN | OCSP_NOVERIFY);
    X509_STORE_free(store);
    sk_X509_free(certs);
    return result == 1;
}

::testing::AssertionResult ThrowsHResult(const std::function<void()>& body,
                                         std::uint32_t expected) {
    try {
        body();
    } catch (const ATL::CAtlException& e) {
        if (static_cast<std::uint32_t>(e.m_hr) == expected) {
            return ::testing::AssertionSuccess();
        }
        return ::testing::AssertionFailure() << "threw " << e.what();
    } catch (const std::exception& e) {
        return ::testing::AssertionFailure() << "threw another exception: " << e.what();
    }
    return ::testing::AssertionFailure() << "threw nothing";
}

} // namespace velmor_test
