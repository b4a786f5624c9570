// The end-to-end OCSP exchange: what a client and a responder do with the library.
//
// It grows with the message classes. Today it plays both ends of the outer response: the
// responder answers "try later" (an error response without a body) and passes on a signed
// answer made by a real OCSP responder; the client reads both back, tells an error from an
// answer, and checks that the answer came through byte for byte.
#include <cstdio>
#include <fstream>
#include <iterator>
#include <pki/ocsp/ocsp.h>
#include <string>
#include <vector>

using namespace Velmor;
using namespace Velmor::PKI::OCSP;

namespace {

CBlob ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        throw std::runtime_error("cannot read " + path);
    }
    return CBlob(std::vector<std::uint8_t>(std::istreambuf_iterator<char>(in), {}));
}

std::string Hex(const CBlob& blob, std::size_t limit) {
    static const char* const digits = "0123456789abcdef";
    std::string text;
    for (std::size_t i = 0; i < blob.cbData() && i < limit; ++i) {
        text += digits[blob.pbData()[i] >> 4];
        text += digits[blob.pbData()[i] & 15];
    }
    return blob.cbData() > limit ? text + "..." : text;
}

const char* StatusName(ResponseStatus status) {
    switch (status) {
    case successful:
        return "successful";
    case malformedRequest:
        return "malformedRequest";
    case internalError:
        return "internalError";
    case tryLater:
        return "tryLater";
    case sigRequired:
        return "sigRequired";
    case unauthorized:
        return "unauthorized";
    }
    return "unknown";
}

// The client side: what a received response says.
void Describe(const char* label, const CBlob& wire) {
    CResponseMessage received;
    received.decode(wire);
    std::printf("client: %s: status %s", label, StatusName(received.get_responseStatus()));
    if (received.get_response() != nullptr) {
        std::printf(", body of type %s, %lu octets", received.get_responseType(),
                    received.get_response()->cbData());
    }
    std::printf("\n");
}

} // namespace

int main() {
    std::printf("velmor-ocsp %d.%d.%d\n", VELMOR_OCSP_VERSION_MAJOR, VELMOR_OCSP_VERSION_MINOR,
                VELMOR_OCSP_VERSION_PATCH);
    try {
        // Responder: busy, so it answers without a body.
        CResponseMessage busy;
        busy.put_responseStatus(tryLater);
        const CBlob busyWire = busy.encode();
        std::printf("responder: tryLater -> %s\n", Hex(busyWire, 16).c_str());
        Describe("first answer", busyWire);

        // Responder: forwards the signed basic response of a real OCSP responder.
        const CBlob upstream = ReadFile(VELMOR_EXAMPLE_DATA_DIR "/ocsp/resp-good-rsa.der");
        CResponseMessage forwarded;
        forwarded.decode(upstream);
        const CBlob forwardedWire = forwarded.encode();
        std::printf("responder: forwards %lu octets -> %s\n", forwardedWire.cbData(),
                    Hex(forwardedWire, 16).c_str());
        Describe("second answer", forwardedWire);
        const bool same = forwardedWire == upstream;
        std::printf("client: the answer arrived %s\n", same ? "unchanged" : "CHANGED");

        // A client that receives garbage gets an exception with a code, never a crash.
        try {
            Describe("garbage", CBlob(std::string_view("\x30\x05\x0a\x01", 4)));
        } catch (const ATL::CAtlException& e) {
            std::printf("client: garbage rejected with %s\n", e.what());
        }
        return same ? 0 : 1;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "exchange failed: %s\n", e.what());
        return 1;
    }
}
