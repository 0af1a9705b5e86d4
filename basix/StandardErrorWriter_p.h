#pragma once

#include <QtCore/QByteArray>

namespace tvl::detail {

/// Writes all of `bytes` to file descriptor 2, retrying after interruptions; gives up silently
/// when standard error is closed or full, since there is nowhere left to report that.
void writeToStandardError(const QByteArray& bytes);

} // namespace tvl::detail
