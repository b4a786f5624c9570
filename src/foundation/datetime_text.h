// The GeneralizedTime text of a CDateTime written into the caller's storage, for the
// converters that copy it straight into context memory.
#ifndef VELMOR_SRC_FOUNDATION_DATETIME_TEXT_H
#define VELMOR_SRC_FOUNDATION_DATETIME_TEXT_H

#include <cstddef>
#include <pki/ocsp/datetime.h>

namespace Velmor::Detail {

// The most characters WriteUtcGeneralizedTime writes: YYYYMMDDHHMMSS.fffffffffZ.
inline constexpr std::size_t kUtcGeneralizedTimeMax = 25;

// Writes time as CDateTime::ToGeneralizedTime(true) does, YYYYMMDDHHMMSS[.f]Z without a
// terminator, at out (kUtcGeneralizedTimeMax characters), and returns the length. Throws
// E_INVALIDARG when the year would fall outside 0000..9999.
std::size_t WriteUtcGeneralizedTime(const CDateTime& time, char* out);

} // namespace Velmor::Detail

#endif
