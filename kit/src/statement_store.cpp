#include "statement_store.h"

#include <algorithm>
#include <cstring>
#include <tuple>
#include <utility>

#include "compile.h"
#include "connection.h"
#include "sqldb/kit/error.h"

namespace sqldb::kit::detail {

namespace {

constexpr std::uint64_t kPrime = 0x9E3779B97F4A7C15;

inline std::uint64_t Block(const char* position) {
  std::uint64_t block;
  std::memcpy(&block, position, sizeof block);
  return block;
}

// By eight bytes at a time, the last of which may be looked at twice: the texts of statements differ somewhere, and are
// compared as well.
inline std::uint64_t Mixed(std::uint64_t hash, std::string_view text) {
  constexpr std::size_t kSize = sizeof hash;
  const char* position = text.data();
  const char* const whole = position + text.size() / kSize * kSize;
  for (; position != whole; position += kSize) hash = (hash ^ Block(position)) * kPrime;
  if (text.size() % kSize == 0) return hash;
  if (text.size() >= kSize) return (hash ^ Block(text.data() + text.size() - kSize)) * kPrime;
  for (const char character : text) hash = (hash ^ static_cast<unsigned char>(character)) * kPrime;
  return hash;
}

inline std::uint64_t Hash(const StatementKey& key) {
  std::uint64_t hash =
      key.text.size() ^ reinterpret_cast<std::uintptr_t>(key.owner) ^ static_cast<std::uint64_t>(key.kind) << 56;
  hash = Mixed(hash, key.text);
  hash = Mixed(hash, key.secondPart);
  // A product has in its low bits nothing of the high ones of its factors.
  return hash ^ hash >> 32;
}

inline bool IsOf(const KeptStatement& kept, std::uint64_t hash, const StatementKey& key) {
  const char* const second = kept.key.data() + kept.secondPart;
  const std::string_view parts[] = {{kept.key.data(), kept.secondPart}, {second, kept.key.size() - kept.secondPart}};
  return std::tie(kept.hash, kept.owner, kept.kind, parts[0], parts[1]) ==
         std::tie(hash, key.owner, key.kind, key.text, key.secondPart);
}

}  // namespace

inline KeptStatement* StatementStore::Find(std::uint64_t hash, const StatementKey& key) noexcept {
  for (KeptStatement* kept = Bucket(hash); kept != nullptr; kept = kept->nextOfBucket) {
    if (IsOf(*kept, hash, key)) return kept;
  }
  return nullptr;
}

KeptStatement* StatementStore::Find(const StatementKey& key) noexcept {
  KeptStatement* const found = Find(Hash(key), key);
  if (found == nullptr || found->users > 0) return nullptr;
  return &Lend(*found);
}

// Not inlined: what guards the stack of a function that makes a key would cost each use of a text that is found at
// once.
[[gnu::noinline]] KeptStatement* StatementStore::FindByHash(std::string_view text) noexcept {
  return Find(StatementKey{text});
}

KeptStatement* StatementStore::Find(std::string_view text) noexcept {
  const std::uint64_t mixed = reinterpret_cast<std::uintptr_t>(text.data()) * kPrime;
  KeptStatement*& last = fByAddress[static_cast<std::size_t>(mixed >> (64 - kAddressBits))];
  if (last == nullptr || last->users > 0 || last->key != text) {
    return last = FindByHash(text);
  }
  return &Lend(*last);
}

std::unique_ptr<KeptStatement> StatementStore::Compiled(sqlite3* handle, std::string sql) const {
  auto made = std::make_unique<KeptStatement>();
  made->connection = &fConnection;
  made->sql = std::move(sql);
  made->statement = CompileOne(handle, made->sql);
  made->parameterCount = sqlite3_bind_parameter_count(made->statement);
  made->isWriting = sqlite3_stmt_readonly(made->statement) == 0;
  return made;
}

KeptStatement& StatementStore::Enter(std::unique_ptr<KeptStatement> made) noexcept {
  KeptStatement& kept = *made.release();
  if (kept.stay == KeptStatement::Stay::kByKey) {
    kept.nextOfBucket = Bucket(kept.hash);
    Bucket(kept.hash) = &kept;
  }
  Link(kept);
  ++fCount;
  ++fIdle;
  return Lend(kept);
}

KeptStatement& StatementStore::Compile(sqlite3* handle, const StatementKey& key, std::string sql) {
  Spread();
  const std::uint64_t hash = Hash(key);
  const bool isFound = Find(hash, key) == nullptr;
  std::string text;
  if (isFound) text.append(key.text).append(key.secondPart);
  std::unique_ptr<KeptStatement> made = Compiled(handle, std::move(sql));
  made->hash = hash;
  made->owner = key.owner;
  made->kind = key.kind;
  if (isFound) {
    made->key = std::move(text);
    made->secondPart = key.text.size();
    if (made->key == made->sql) made->sql.clear();
    made->stay = KeptStatement::Stay::kByKey;
  }
  return Enter(std::move(made));
}

KeptStatement& StatementStore::Compile(sqlite3* handle, KeptStatement*& slot, const void* owner, std::string sql) {
  std::unique_ptr<KeptStatement> made = Compiled(handle, std::move(sql));
  made->owner = owner;
  if (slot == nullptr) {
    made->stay = KeptStatement::Stay::kInSlot;
    made->slot = &slot;
    slot = made.get();
  }
  return Enter(std::move(made));
}

KeptStatement& StatementStore::CompileOnce(sqlite3* handle, std::string sql, std::string told) {
  std::unique_ptr<KeptStatement> made;
  try {
    made = Compiled(handle, std::move(sql));
  } catch (const Error& error) {
    if (told.empty()) throw;
    ThrowAsItIs(std::string(error.Message()), error.ExtendedCode(), told);
  }
  if (!told.empty()) made->sql = std::move(told);
  return Enter(std::move(made));
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
    std::replace(fByAddress.begin(), fByAddress.end(), &kept, static_cast<KeptStatement*>(nullptr));
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
  --fIdle;
  sqlite3_finalize(kept.statement);
  delete &kept;
}

void StatementStore::GiveBackWithMore(KeptStatement& kept) noexcept {
  kept.users = 0;
  Connection& connection = *kept.connection;
  if (kept.statement == nullptr) {
    delete &kept;
  } else {
    connection.fStatements.TakeBack(kept);
  }
  connection.RemoveUser();
}

void StatementStore::TakeBack(KeptStatement& kept) noexcept {
  kept.Reset();
  ++fIdle;
  Unlink(kept);
  Link(kept);
  if (kept.stay == KeptStatement::Stay::kNone) {
    Discard(kept);
  } else if (fIdle > fMost) {
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
    kept.isRunning = false;
    sqlite3_finalize(std::exchange(kept.statement, nullptr));
    if (kept.users == 0) delete &kept;
  }
  fIdle = 0;
}

// So that a bucket has about one statement.
void StatementStore::Spread() {
  if (fCount < fBuckets.size()) return;
  std::vector<KeptStatement*> larger(2 * fBuckets.size());
  fBuckets.swap(larger);
  fMask = fBuckets.size() - 1;
  for (KeptStatement* kept = fOldest; kept != nullptr; kept = kept->newer) {
    if (kept->stay != KeptStatement::Stay::kByKey) continue;
    kept->nextOfBucket = Bucket(kept->hash);
    Bucket(kept->hash) = kept;
  }
}

}  // namespace sqldb::kit::detail
