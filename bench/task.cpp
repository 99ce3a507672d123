#include "task.h"

namespace bench {

std::vector<Entry> AllEntries() {
  std::vector<Entry> entries;
  AddInsert(entries);
  AddReplace(entries);
  AddUpdate(entries);
  AddDelete(entries);
  AddScan(entries);
  AddCallbackScan(entries);
  AddRecordQueries(entries);
  AddSelect(entries);
  AddEncoding(entries);
  return entries;
}

}  // namespace bench
