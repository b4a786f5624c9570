// What serve answers with: the responder behind a cache of signed answers, over the CA index
// that is read again when its file changes.
//
// A request without a nonce about one certificate of the index is answered from the cache:
// its answer is signed once and served until half of its validity (thisUpdate to
// nextUpdate) has passed, then signed anew. Every other request is signed as it comes. The
// cache is keyed by the request's CertID (DER), and holds only CertIDs of this CA whose hash
// parameters are absent or NULL and whose serial number the index holds: it cannot grow
// beyond a few entries per certificate, whatever clients send. The index file is looked at
// (its size, time and inode) at most once a second, from the requests; when it changed it is
// read again and the cache is emptied. A cached answer is also found by the bytes of a
// request that holds its CertID and nothing else, without decoding the request.
#ifndef VELMOR_TOOLS_CACHING_RESPONDER_H
#define VELMOR_TOOLS_CACHING_RESPONDER_H

#include "ca_index.h"
#include "responder.h"

#include <pki/ocsp/blob.h>
#include <pki/ocsp/response_message.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

namespace VelmorTool {

// An answer as it goes out.
struct Reply {
    Velmor::CBlob der; // the OCSPResponse
    Velmor::PKI::OCSP::ResponseStatus status = Velmor::PKI::OCSP::successful;
    // Set for a successful answer: seconds since 1970 of its thisUpdate and of its
    // nextUpdate (when it has one).
    std::int64_t thisUpdate = 0;
    std::optional<std::int64_t> nextUpdate;
    bool nonce = false;
    // For successful answers without nonce only, made once for every time the answer goes
    // out: "hex of the SHA-1 of der", quotes included, and the HTTP dates of thisUpdate and
    // of the time the answer expires (nextUpdate, or thisUpdate when there is none).
    std::string etag;
    std::string lastModified;
    std::string expires;
    std::int64_t expiresAt = 0; // seconds since 1970
};

// An HTTP date: "Tue, 03 Feb 2026 10:00:00 GMT".
std::string HttpDate(std::int64_t seconds);

class CachingResponder {
  public:
    // Reads the index and everything the responder needs; a failure ends the command.
    explicit CachingResponder(const ResponderOptions& options);

    // The answer to the bytes of a request: malformedRequest for bytes that are not one,
    // internalError (said on stderr) when answering failed. Safe to call from several threads.
    std::shared_ptr<const Reply> answer(const Velmor::CBlob& requestDer);

  private:
    struct FileStamp {
        std::uint64_t device = 0;
        std::uint64_t inode = 0;
        std::int64_t size = -1;
        std::int64_t seconds = 0;
        std::int64_t nanoseconds = 0;
        bool operator==(const FileStamp& other) const noexcept;
    };
    static FileStamp StampOf(const std::string& path);

    struct Cached {
        std::shared_ptr<const Reply> reply;
        std::int64_t freshUntil; // seconds since 1970
    };

    // An answer kept under the bytes of the request that asked for it, for requests that
    // hold one CertID and nothing else: most clients send exactly that, and such a request
    // is answered without being decoded. Its key views requestDer.
    struct Plain {
        std::string requestDer;
        Cached cached;
    };

    // Reads the index again when the file changed since the last look, if that look was
    // a second ago or more.
    void checkIndex();
    std::shared_ptr<const Reply> answerAnew(const Velmor::PKI::OCSP::CRequestMessage& request,
                                            std::int64_t now, const std::string& key,
                                            std::string_view requestDer);

    const std::string m_indexPath;
    const Responder m_responder;
    const std::shared_ptr<const Reply> m_malformed;
    const std::shared_ptr<const Reply> m_internalError;

    std::atomic<std::int64_t> m_lastCheck; // steady clock, milliseconds
    std::mutex m_reloadMutex;              // held while the file is looked at and read
    FileStamp m_stamp;

    std::mutex m_mutex; // guards what follows
    std::shared_ptr<const CaIndex> m_index;
    std::uint64_t m_generation = 0; // counts the index's readings
    std::unordered_map<std::string, Cached> m_cache;
    // At most one entry for each entry of m_cache: the request that names its CertID alone.
    std::unordered_map<std::string_view, std::unique_ptr<Plain>> m_plain;
};

} // namespace VelmorTool

#endif
