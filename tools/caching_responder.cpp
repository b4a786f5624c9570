#include "caching_responder.h"

#include "report.h"

#include <pki/ocsp/atl_exception.h>
#include <pki/ocsp/datetime.h>

#include <openssl/evp.h>
#include <sys/stat.h>

#include <chrono>
#include <cstdio>
#include <ctime>

namespace VelmorTool {

using namespace Velmor;
using namespace Velmor::PKI::OCSP;

namespace {

// A bound the cache never passes, whatever the index holds.
constexpr std::size_t kMostCached = 1u << 20;

std::int64_t SteadyMilliseconds() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

std::string EntityTag(const CBlob& der) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int size = 0;
    EVP_Digest(der.pbData(), der.cbData(), digest, &size, EVP_sha1(), nullptr);
    return "\"" + Hex(CBlob(digest, size)) + "\"";
}

// The DER of a SEQUENCE around content.
std::string DerSequence(const std::string& content) {
    std::string der(1, '\x30');
    std::size_t size = content.size();
    if (size < 0x80) {
        der += static_cast<char>(size);
    } else {
        std::string length;
        for (; size != 0; size >>= 8) {
            length.insert(length.begin(), static_cast<char>(size & 0xff));
        }
        der += static_cast<char>(0x80 | length.size());
        der += length;
    }
    return der + content;
}

// The DER of the request that asks about certId (DER) and nothing else: OCSPRequest,
// TBSRequest, requestList and Request, four SEQUENCEs around the CertID, no version, no
// name, no extensions, no signature.
std::string PlainRequest(const std::string& certId) {
    std::string der = certId;
    for (int level = 0; level < 4; ++level) {
        der = DerSequence(der);
    }
    return der;
}

std::shared_ptr<const Reply> ReplyOf(const Answer& answer) {
    auto reply = std::make_shared<Reply>();
    reply->der = answer.der;
    reply->status = answer.status;
    reply->nonce = answer.nonce;
    if (answer.status == successful) {
        reply->thisUpdate = answer.thisUpdate.seconds();
        if (answer.nextUpdate) {
            reply->nextUpdate = answer.nextUpdate->seconds();
        }
        if (!answer.nonce) { // an answer for one client is not kept
            reply->etag = EntityTag(answer.der);
            reply->expiresAt = reply->nextUpdate ? *reply->nextUpdate : reply->thisUpdate;
            reply->lastModified = HttpDate(reply->thisUpdate);
            reply->expires = HttpDate(reply->expiresAt);
        }
    }
    return reply;
}

// The CertID of a request that the cache can answer, as the key of its answer: one entry,
// no nonce, hash parameters absent or NULL. Empty otherwise.
std::string CacheKey(const CRequestMessage& request) {
    static const CBlob kDerNull(std::string_view("\x05\x00", 2));
    const CSingleRequestList& entries = request.get_requestList();
    if (entries.size() != 1 || HasNonce(request)) {
        return {};
    }
    const CCertID* id = entries.front().get_reqCert().get_certID();
    if (id == nullptr) {
        return {};
    }
    const CBlob& parameters = id->get_hashAlgorithm().get_parameters();
    if (parameters.cbData() != 0 && parameters != kDerNull) {
        return {};
    }
    const CBlob der = id->encode();
    return std::string(reinterpret_cast<const char*>(der.pbData()), der.cbData());
}

} // namespace

std::string HttpDate(std::int64_t seconds) {
    static constexpr const char* kDays[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
    static constexpr const char* kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                              "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    const std::time_t time = static_cast<std::time_t>(seconds);
    std::tm parts{};
    gmtime_r(&time, &parts);
    char text[40];
    std::snprintf(text, sizeof text, "%s, %02d %s %04d %02d:%02d:%02d GMT", kDays[parts.tm_wday],
                  parts.tm_mday, kMonths[parts.tm_mon], parts.tm_year + 1900, parts.tm_hour,
                  parts.tm_min, parts.tm_sec);
    return text;
}

bool CachingResponder::FileStamp::operator==(const FileStamp& other) const noexcept {
    return device == other.device && inode == other.inode && size == other.size &&
           seconds == other.seconds && nanoseconds == other.nanoseconds;
}

CachingResponder::FileStamp CachingResponder::StampOf(const std::string& path) {
    FileStamp stamp;
    struct stat status {};
    if (::stat(path.c_str(), &status) == 0) {
        stamp.device = status.st_dev;
        stamp.inode = status.st_ino;
        stamp.size = status.st_size;
        stamp.seconds = status.st_mtim.tv_sec;
        stamp.nanoseconds = status.st_mtim.tv_nsec;
    }
    return stamp;
}

CachingResponder::CachingResponder(const ResponderOptions& options)
    : m_indexPath(options.index), m_responder(options),
      m_malformed(ReplyOf(ErrorAnswer(malformedRequest))),
      m_internalError(ReplyOf(ErrorAnswer(internalError))), m_lastCheck(SteadyMilliseconds()),
      m_stamp(StampOf(options.index)), // before reading: a change while reading is seen
      m_index(std::make_shared<const CaIndex>(options.index)) {}

void CachingResponder::checkIndex() {
    const std::int64_t now = SteadyMilliseconds();
    std::int64_t last = m_lastCheck.load(std::memory_order_relaxed);
    if (now - last < 1000 || !m_lastCheck.compare_exchange_strong(last, now)) {
        return;
    }
    const std::unique_lock<std::mutex> reloading(m_reloadMutex, std::try_to_lock);
    if (!reloading.owns_lock()) {
        return; // another thread is still reading it
    }
    const FileStamp stamp = StampOf(m_indexPath);
    if (stamp == m_stamp) {
        return;
    }
    m_stamp = stamp;
    try {
        auto index = std::make_shared<const CaIndex>(m_indexPath);
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_index = std::move(index);
        ++m_generation;
        m_plain.clear();
        m_cache.clear();
    } catch (const ToolError& e) {
        std::fprintf(stderr, "velmor-ocsp: %s; still answering from the index read before\n",
                     e.what());
    }
}

std::shared_ptr<const Reply> CachingResponder::answer(const CBlob& requestDer) {
    checkIndex();
    const std::int64_t now = std::time(nullptr);
    const std::string_view bytes(reinterpret_cast<const char*>(requestDer.pbData()),
                                 requestDer.cbData());
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        const auto plain = m_plain.find(bytes);
        if (plain != m_plain.end() && now < plain->second->cached.freshUntil) {
            return plain->second->cached.reply;
        }
    }
    try {
        std::string problem;
        const std::optional<CRequestMessage> request = DecodeRequest(requestDer, &problem);
        if (!request) {
            return m_malformed;
        }
        const std::string key = CacheKey(*request);
        if (!key.empty()) {
            const std::lock_guard<std::mutex> lock(m_mutex);
            const auto cached = m_cache.find(key);
            if (cached != m_cache.end() && now < cached->second.freshUntil) {
                return cached->second.reply;
            }
        }
        return answerAnew(*request, now, key, bytes);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "velmor-ocsp: cannot answer a request: %s; answered internalError\n",
                     e.what());
    }
    return m_internalError;
}

std::shared_ptr<const Reply> CachingResponder::answerAnew(const CRequestMessage& request,
                                                          std::int64_t now, const std::string& key,
                                                          std::string_view requestDer) {
    std::shared_ptr<const CaIndex> index;
    std::uint64_t generation = 0;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        index = m_index;
        generation = m_generation;
    }
    const Answer answer = m_responder.answer(request, *index, CDateTime(now, 0));
    std::shared_ptr<const Reply> reply = ReplyOf(answer);
    // Only certificates of the index: an unknown serial is signed each time it is asked.
    const bool known = answer.code == kAllGood || answer.code == kRevoked;
    if (!key.empty() && answer.status == successful && known && reply->nextUpdate &&
        *reply->nextUpdate > now) {
        const Cached cached{reply, now + (*reply->nextUpdate - now) / 2};
        const bool plain = requestDer == PlainRequest(key);
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (generation == m_generation && m_cache.size() < kMostCached) {
            m_cache.insert_or_assign(key, cached);
            if (plain) {
                const auto existing = m_plain.find(requestDer);
                if (existing != m_plain.end()) {
                    existing->second->cached = cached;
                } else {
                    auto entry = std::make_unique<Plain>(Plain{std::string(requestDer), cached});
                    const std::string_view view = entry->requestDer;
                    m_plain.emplace(view, std::move(entry));
                }
            }
        }
    }
    return reply;
}

} // namespace VelmorTool
