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
        if (!answer.nonce) {
            reply->etag = EntityTag(answer.der); // an answer for one client is not kept
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
        m_cache.clear();
    } catch (const ToolError& e) {
        std::fprintf(stderr, "velmor-ocsp: %s; still answering from the index read before\n",
                     e.what());
    }
}

std::shared_ptr<const Reply> CachingResponder::answer(const CBlob& requestDer) {
    checkIndex();
    try {
        std::string problem;
        const std::optional<CRequestMessage> request = DecodeRequest(requestDer, &problem);
        if (!request) {
            return m_malformed;
        }
        const std::int64_t now = std::time(nullptr);
        const std::string key = CacheKey(*request);
        if (!key.empty()) {
            const std::lock_guard<std::mutex> lock(m_mutex);
            const auto cached = m_cache.find(key);
            if (cached != m_cache.end() && now < cached->second.freshUntil) {
                return cached->second.reply;
            }
        }
        return answerAnew(*request, now, key);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "velmor-ocsp: cannot answer a request: %s; answered internalError\n",
                     e.what());
    }
    return m_internalError;
}

std::shared_ptr<const Reply> CachingResponder::answerAnew(const CRequestMessage& request,
                                                          std::int64_t now,
                                                          const std::string& key) {
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
        const std::int64_t freshUntil = now + (*reply->nextUpdate - now) / 2;
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (generation == m_generation && m_cache.size() < kMostCached) {
            m_cache.insert_or_assign(key, Cached{reply, freshUntil});
        }
    }
    return reply;
}

} // namespace VelmorTool
