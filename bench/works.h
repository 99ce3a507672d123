#ifndef SQLDB_BENCH_WORKS_H
#define SQLDB_BENCH_WORKS_H

// Which works of the layers are measured, on which rows, and how often.

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "layer.h"
#include "task.h"

namespace bench {

struct LayerMaker {
  const char* name;
  std::unique_ptr<Layer> (*make)(const Place& place);
};

// The one that the others are compared with comes first.
const std::vector<LayerMaker>& Layers();

// A connection of a layer, made after SQLite was told whether it is to lock the connections of the process.
// REQUIRES: no connection of the process is open.
std::unique_ptr<Layer> Connect(const LayerMaker& layer, const Place& place);

// The statements that make the tables and fill them with so many rows.
std::vector<std::string> TableOfParts(std::int64_t rows);
std::vector<std::string> TableOfItems(std::int64_t rows);

// Adds every work with statements by every layer, grouped by work, each group led by the calls by hand.
void AddStatements(std::vector<Entry>& entries);

}  // namespace bench

#endif  // SQLDB_BENCH_WORKS_H
