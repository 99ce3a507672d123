#include "database/connection_record.h"

#include <algorithm>

namespace sqldb {

void SentStatement::MakeRoom() { fRecord.fLeftovers.reserve(2 * fRecord.fLeftovers.capacity()); }

void SentStatement::Record() noexcept {
  // What was left on a connection that has been replaced meanwhile is nobody's.
  if (fConnection != fDatabase.fConnection) return;
  // At the address of one that the application has finalized itself.
  std::vector<ConnectionRecord::Leftover>& all = fRecord.fLeftovers;
  const auto isHere = [this](const ConnectionRecord::Leftover& entry) { return entry.fStatement == fStatement; };
  all.erase(std::remove_if(all.begin(), all.end(), isHere), all.end());
  all.push_back({fStatement, fRecord.fNextNumber++, fHasFailed});
}

}  // namespace sqldb
