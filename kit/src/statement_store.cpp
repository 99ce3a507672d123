#include "statement_store.h"

#include <cstring>
#include <memory>
#include <utility>

#include "compile.h"

namespace sqldb::kit::detail {

namespace {

// FNV-1a, over eight bytes at a time: texts of statements differ somewhere, and are compared as well.
std::uint64_t Hash(const StatementKey& key) {
  constexpr std::uint64_t kPrime = 0x100000001B3;
  std::uint64_t hash = 0xCBF29CE484222325 ^ key.text.size();
  hash = (hash ^ reinterpret_cast<std::uintptr_t>(key.owner) ^ static_cast<std::uint64_t>(key.kind)) * kPrime;
  const char* position = key.text.data();
  std::size_t left = key.text.size();
  for (; left >= sizeof(std::uint64_t); left -= sizeof(std::uint64_t), position += sizeof(std::uint64_t)) {
    std::uint64_t block;
    std::memcpy(&block, position, sizeof block);
    hash = (hash ^ block) * kPrime;
    hash ^= hash >> 29;
  }
  std::uint64_t rest = 0;
  if (left > 0) std::memcpy(&rest, position, left);
  hash = (hash ^ rest) * kPrime;
  return hash ^ (hash >> 32);
}

std::unique_ptr<KeptStatement> Compiled(sqlite3* connection, std::string sql) {
  auto made = std::make_unique<KeptStatement>();
  made->sql = std::move(sql);
  made->statement = CompileOne(connection, made->sql);
  made->users = 1;
  made->parameterCount = sqlite3_bind_parameter_count(made->statement);
  made->columnCount = sqlite3_column_count(made->statement);
  made->isWriting = sqlite3_stmt_readonly(made->statement) == 0;
  return made;
}

}  // namespace

KeptStatement* StatementStore::Find(std::uint64_t hash, const StatementKey& key) noexcept {
  for (KeptStatement* kept = Bucket(hash); kept != nullptr; kept = kept->nextOfBucket) {
    if (kept->hash == hash && kept->owner == key.owner && kept->kind == key.kind && kept->key == key.text) return kept;
  }
  return nullptr;
}

KeptStatement* StatementStore::Find(const StatementKey& key) noexcept {
  KeptStatement* const found = Find(Hash(key), key);
  if (found == nullptr || found->users > 0) return nullptr;
  found->users = 1;
  return found;
}

KeptStatement& StatementStore::Compile(sqlite3* connection, const StatementKey& key, std::string sql) {
  Spread();
  std::unique_ptr<KeptStatement> made = Compiled(connection, std::move(sql));
  made->hash = Hash(key);
  made->owner = key.owner;
  made->kind = key.kind;
  if (Find(made->hash, key) == nullptr) {
    made->key = key.text;
    if (made->key == made->sql) made->sql.clear();
    made->stay = KeptStatement::Stay::kByKey;
  }
  Enter(*made);
  return *made.release();
}

KeptStatement& StatementStore::Compile(sqlite3* connection, KeptStatement*& slot, const void* owner, std::string sql) {
  std::unique_ptr<KeptStatement> made = Compiled(connection, std::move(sql));
  made->owner = owner;
  if (slot == nullptr) {
    made->stay = KeptStatement::Stay::kInSlot;
    made->slot = &slot;
    slot = made.get();
  }
  Enter(*made);
  return *made.release();
}

KeptStatement& StatementStore::CompileOnce(sqlite3* connection, std::string sql) {
  std::unique_ptr<KeptStatement> made = Compiled(connection, std::move(sql));
  Enter(*made);
  return *made.release();
}

void StatementStore::Enter(KeptStatement& kept) noexcept {
  if (kept.stay == KeptStatement::Stay::kByKey) {
    kept.nextOfBucket = Bucket(kept.hash);
    Bucket(kept.hash) = &kept;
  }
  Link(kept);
  ++fCount;
}

void StatementStore::Link(KeptStatement& kept) noexcept {
  kept.newer = nullptr;
  kept.older = fNewest;
  (fNewest != nullptr ? fNewest->newer : fOldest) = &kept;
  fNewest = &kept;
}

void StatementStore::Unlink(KeptStatement& kept) noexcept {
  (kept.newer != nullptr ? kept.newer->older : fNewest) = kept.older;
  (kept.older != nullptr ? kept.older->newer : fOldest) = kept.newer;
}

void StatementStore::Hide(KeptStatement& kept) noexcept {
  if (kept.stay == KeptStatement::Stay::kByKey) {
    KeptStatement** link = &Bucket(kept.hash);
    while (*link != &kept) link = &(*link)->nextOfBucket;
    *link = kept.nextOfBucket;
  } else if (kept.stay == KeptStatement::Stay::kInSlot) {
    *kept.slot = nullptr;
  }
  kept.stay = KeptStatement::Stay::kNone;
}

void StatementStore::Leave(KeptStatement& kept) noexcept {
  Hide(kept);
  Unlink(kept);
  --fCount;
}

void StatementStore::Discard(KeptStatement& kept) noexcept {
  Leave(kept);
  sqlite3_finalize(kept.statement);
  delete &kept;
}

void StatementStore::GiveBack(KeptStatement& kept) noexcept {
  if (--kept.users > 0) return;
  if (kept.statement == nullptr) {
    delete &kept;
    return;
  }
  sqlite3_reset(kept.statement);
  if (&kept != fNewest) {
    Unlink(kept);
    Link(kept);
  }
  if (kept.stay == KeptStatement::Stay::kNone) {
    Discard(kept);
  } else if (fCount > fMost) {
    // One that is lent goes when it comes back.
    KeptStatement* victim = fOldest;
    while (victim->users > 0) victim = victim->newer;
    Discard(*victim);
  }
}

void StatementStore::Forget(const void* owner) noexcept {
  KeptStatement* next = fNewest;
  while (next != nullptr) {
    KeptStatement& kept = *next;
    next = kept.older;
    if (kept.owner != owner) continue;
    Hide(kept);
    if (kept.users == 0) Discard(kept);
  }
}

void StatementStore::LetGo() noexcept {
  while (fNewest != nullptr) {
    KeptStatement& kept = *fNewest;
    Leave(kept);
    sqlite3_finalize(std::exchange(kept.statement, nullptr));
    if (kept.users == 0) delete &kept;
  }
}

// So that a bucket has about one statement.
void StatementStore::Spread() {
  if (fCount < fBuckets.size()) return;
  std::vector<KeptStatement*> larger(2 * fBuckets.size());
  fBuckets.swap(larger);
  for (KeptStatement* kept = fOldest; kept != nullptr; kept = kept->newer) {
    if (kept->stay != KeptStatement::Stay::kByKey) continue;
    kept->nextOfBucket = Bucket(kept->hash);
    Bucket(kept->hash) = kept;
  }
}

}  // namespace sqldb::kit::detail
