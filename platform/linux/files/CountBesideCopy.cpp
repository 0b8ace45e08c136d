#include "platform/linux/files/CountBesideCopy.h"

#include <new>
#include <utility>

#include "platform/linux/processes/SignalMaskedThread.h"

namespace platform {

CountBesideCopy::CountBesideCopy(const Location& source, Clock::time_point begin, GoOn goOn,
                                 Counted counted)
    : source_(source), begin_(begin), goOn_(std::move(goOn)), counted_(std::move(counted)) {}

CountBesideCopy::~CountBesideCopy() {
  ending_ = true;
  if (thread_.joinable()) thread_.join();
}

// Without a further thread the work is done by the one there is.
void CountBesideCopy::begin() {
  if (begun_.exchange(true)) return;
  thread_ = startSignalMaskedThread([this] { count(); });
  if (!thread_.joinable()) count();
}

// Without memory for it nothing is known of what there is to do; the copy goes on.
void CountBesideCopy::count() const {
  try {
    const CopyTotals totals =
        countForCopy(source_, [this](const CopyTotals& soFar) { return !ending_ && goOn_(soFar); });
    if (!ending_) counted_(totals);
  } catch (const std::bad_alloc&) {
    return;
  }
}

}  // namespace platform
