// How texts are built: numbers are plain decimal whatever the process's locale, and a text that could not be built
// completely is never sent.

#include <functional>
#include <ios>
#include <locale>
#include <memory>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "support/allocations.h"
#include "support/fixtures.h"

using sqldb::SQLInsertClass;
using sqldb::SQLTermBase;
using sqldb::SQLValueBase;
using support::AllocationCount;
using support::AllocationFailure;
using support::CallRecorder;
using support::MakeColumn;
using support::MakeTerm;
using support::MakeValue;
using support::MessageOf;
using support::OwnFailure;
using ::testing::AnyOf;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

using StepCursor = sqldb::SQLStepCursor<std::uint32_t>;
using Printer = std::function<void(std::ostream&)>;

class PrintingTerm : public SQLTermBase {
 public:
  explicit PrintingTerm(Printer print) : fPrint(std::move(print)) {}
  std::ostream& Print(std::ostream& out) const override {
    fPrint(out);
    return out;
  }
  bool NotEmpty() const override { return true; }

 private:
  Printer fPrint;
};

class PrintingValue : public SQLValueBase {
 public:
  explicit PrintingValue(Printer print) : fPrint(std::move(print)) {}
  std::ostream& Print(std::ostream& stream) const override {
    fPrint(stream);
    return stream;
  }

 private:
  Printer fPrint;
};

boost::shared_ptr<SQLTermBase> PrintedTerm(Printer print) {
  return boost::shared_ptr<SQLTermBase>(new PrintingTerm(std::move(print)));
}

boost::shared_ptr<SQLValueBase> PrintedValue(Printer print) {
  return boost::shared_ptr<SQLValueBase>(new PrintingValue(std::move(print)));
}

// A table t with one row, and statements on it.
class TextStreamTest : public support::DatabaseTest {
 protected:
  TextStreamTest() : fTable(MakeTable("t", {"a"})) { Rows("INSERT INTO t VALUES (1)"); }

  boost::shared_ptr<SQLInsertClass> InsertOf(const boost::shared_ptr<SQLValueBase>& value) {
    auto insert = fTable->NewInsert();
    insert->fColumns = {MakeColumn("a")};
    insert->fValues = {value};
    return insert;
  }
  boost::shared_ptr<sqldb::SQLUpdateClass> UpdateOf(const boost::shared_ptr<SQLValueBase>& value,
                                                    const boost::shared_ptr<SQLTermBase>& term) {
    auto update = fTable->NewUpdate();
    update->fColumns = {MakeColumn("a")};
    update->fValues = {value};
    update->fTerm = term;
    return update;
  }
  boost::shared_ptr<sqldb::SQLSelectClass> SelectOf(const boost::shared_ptr<SQLTermBase>& term) {
    auto select = fDatabase.NewSelect(fTable, 0);
    select << MakeColumn("a");
    select->fTerm = term;
    return select;
  }
  boost::shared_ptr<sqldb::SQLCursorBase> NewCursor() {
    return boost::shared_ptr<sqldb::SQLCursorBase>(new sqldb::SQLCursorBase(&fDatabase));
  }
  std::vector<std::string> Content() { return Rows("SELECT a FROM t"); }

  boost::shared_ptr<sqldb::SQLTableClass> fTable;
};

// Groups digits by threes, as many natural locales do.
class GroupedDigits : public std::numpunct<char> {
 protected:
  char do_thousands_sep() const override { return ','; }
  std::string do_grouping() const override { return "\3"; }
};

class GroupingLocaleTest : public TextStreamTest {
 protected:
  GroupingLocaleTest() : fOriginal(std::locale::global(std::locale(std::locale(), new GroupedDigits))) {}
  ~GroupingLocaleTest() override { std::locale::global(fOriginal); }

  std::locale fOriginal;
};

TEST_F(GroupingLocaleTest, WouldGroupTheDigitsOfAnOrdinaryStream) {
  std::ostringstream stream;
  stream << 1234567;
  EXPECT_EQ(stream.str(), "1,234,567");
}

TEST_F(GroupingLocaleTest, LimitOffsetAndTermOfASelectStayPlain) {
  const auto select = SelectOf(PrintedTerm([](std::ostream& out) { out << " a < " << 1234567; }));
  select->fLimit = 1000;
  select->fOffset = 2000000;
  select->SetupSelect(NewCursor());
  EXPECT_EQ(select->fQuery, "SELECT a FROM t WHERE a < 1234567 LIMIT 1000 OFFSET 2000000");
}

TEST_F(GroupingLocaleTest, ValuesOfAnInsertStayPlain) {
  const auto insert = InsertOf(PrintedValue([](std::ostream& out) { out << 1234567; }));
  CallRecorder recorder;
  insert->PerformInsert(false);
  EXPECT_THAT(recorder.Sql(), ElementsAre("INSERT INTO t ( a ) VALUES (1234567 )"));
}

TEST_F(GroupingLocaleTest, WhatTheApplicationWritesToAnInsertsStreamStaysPlain) {
  const auto insert = fTable->NewInsert();
  insert->fQuery << 1234567;
  EXPECT_EQ(insert->fQuery.str(), "1234567");
}

TEST_F(GroupingLocaleTest, ValuesAndTermOfAnUpdateStayPlain) {
  const auto update = UpdateOf(PrintedValue([](std::ostream& out) { out << 1234567; }),
                               PrintedTerm([](std::ostream& out) { out << " a = " << 7654321; }));
  CallRecorder recorder;
  update->PerformUpdate(false);
  EXPECT_THAT(recorder.Sql(), ElementsAre("UPDATE t SET a =  1234567 WHERE a = 7654321"));
}

TEST_F(GroupingLocaleTest, TermOfADeleteStaysPlain) {
  const auto statement = fTable->NewDelete(PrintedTerm([](std::ostream& out) { out << " a = " << 1234567; }));
  statement->SetUpDelete();
  EXPECT_EQ(statement->fQuery, "DELETE FROM t WHERE a = 1234567");
}

TEST_F(GroupingLocaleTest, ParameterNamesStayPlain) {
  SQLValueBase value;
  value.fParameterNumber = 1234567;
  EXPECT_EQ(value.GetParameterName(), ":1234567");
}

TEST_F(GroupingLocaleTest, ErrorMessagesStayPlain) {
  EXPECT_EQ(MessageOf([] { ThrowError(1234567); }), "Error encountered: 1234567.\n");
}

// What a term leaves behind on the stream.

TEST_F(TextStreamTest, HexadecimalTermDoesNotChangeLimitAndOffset) {
  const auto select = SelectOf(
      PrintedTerm([](std::ostream& out) { out << " a < 0x" << std::hex << std::showbase << std::uppercase << 255; }));
  select->fLimit = 10;
  select->fOffset = 4294967295u;
  select->SetupSelect(NewCursor());
  EXPECT_EQ(select->fQuery, "SELECT a FROM t WHERE a < 0x0XFF LIMIT 10 OFFSET 4294967295");
}

TEST_F(TextStreamTest, FormatOfOneTextDoesNotReachTheNext) {
  const auto insert = InsertOf(PrintedValue([](std::ostream& out) { out << 255 << std::hex; }));
  CallRecorder recorder;
  insert->PerformInsert(false);
  insert->PerformInsert(false);
  EXPECT_THAT(recorder.Sql(), ElementsAre("INSERT INTO t ( a ) VALUES (255 )", "INSERT INTO t ( a ) VALUES (255 )"));
}

// Leaves nothing of a new stream's state as it was.
void Unsettle(std::ostream& out) {
  static std::ostringstream other;
  out << std::hex << std::showbase << std::uppercase << std::scientific << std::boolalpha;
  out.width(9);
  out.fill('*');
  out.precision(2);
  out.imbue(std::locale(std::locale::classic(), new GroupedDigits));
  out.tie(&other);
  out.exceptions(std::ios::goodbit);
  out.rdbuf(other.rdbuf());
  out.setstate(std::ios::failbit);
}

// What a stream prints that is like new.
void PrintNumbers(std::ostream& out) {
  EXPECT_EQ(out.tie(), nullptr);
  EXPECT_EQ(out.exceptions(), std::ios::badbit | std::ios::failbit);
  out << " a IN (" << 1234567 << ", " << 1234.5678 << ", " << true << ")";
}
constexpr char kNumbers[] = " a IN (1234567, 1234.57, 1)";

TEST_F(TextStreamTest, NothingThatATermLeavesReachesTheNextText) {
  const auto unsettling = fTable->NewDelete(PrintedTerm(Unsettle));
  const auto next = fTable->NewDelete(PrintedTerm(PrintNumbers));
  EXPECT_THROW(unsettling->SetUpDelete(), std::ios::failure);
  next->SetUpDelete();
  EXPECT_EQ(next->fQuery, std::string("DELETE FROM t WHERE") + kNumbers);
}

TEST_F(TextStreamTest, ABufferThatATermExchangesDoesNotGetTheNextText) {
  std::ostringstream elsewhere;
  const auto print = [&](std::ostream& out) {
    out << " a = 1";
    out.rdbuf(elsewhere.rdbuf());
  };
  const auto next = fTable->NewDelete(PrintedTerm(PrintNumbers));
  fTable->NewDelete(PrintedTerm(print))->SetUpDelete();
  next->SetUpDelete();
  EXPECT_EQ(next->fQuery, std::string("DELETE FROM t WHERE") + kNumbers);
  EXPECT_EQ(elsewhere.str(), "");
}

TEST_F(TextStreamTest, NothingThatAValueLeavesStaysOnTheInsertsStream) {
  const auto insert = InsertOf(PrintedValue(Unsettle));
  insert->fQuery.fill('0');
  EXPECT_THROW(insert->SetupInsert(), std::ios::failure);
  EXPECT_EQ(insert->fQuery.tie(), nullptr);
  insert->fQuery << 1234567 << " " << 1234.5678 << " " << true << " ";
  insert->fQuery.width(3);
  insert->fQuery << 7;
  EXPECT_EQ(insert->fQuery.str(), "1234567 1234.57 1 007");
  EXPECT_THROW(insert->fQuery.setstate(std::ios::failbit), std::ios::failure);
}

TEST_F(TextStreamTest, TextsMayBeBuiltInTheMiddleOfAnother) {
  const auto inner = UpdateOf(MakeValue("2"), MakeTerm(" a = 1"));
  const auto print = [&](std::ostream& out) {
    out << " a = ";
    inner->PerformUpdate(false);
    out << fTable->CountRecords(MakeTerm(" a = 2"));
  };
  CallRecorder recorder;
  fTable->DeleteRecords(PrintedTerm(print));
  EXPECT_THAT(recorder.Sql(), ElementsAre("UPDATE t SET a =  2 WHERE a = 1", "SELECT COUNT(ROWID) FROM t WHERE a = 2",
                                          "DELETE FROM t WHERE a = 1"));
}

TEST_F(TextStreamTest, TableMayGoInTheMiddleOfItsText) {
  const auto print = [this](std::ostream& out) {
    fDatabase.fTables.clear();
    fTable.reset();
    out << " a = 1";
  };
  const auto statement = fTable->NewDelete(PrintedTerm(print));
  statement->SetUpDelete();
  EXPECT_EQ(statement->fQuery, "DELETE FROM t WHERE a = 1");
}

TEST_F(TextStreamTest, TextOfATableThatIsGoneIsNotSent) {
  const auto print = [this](std::ostream& out) {
    fDatabase.fTables.clear();
    fTable.reset();
    out << " 1";
  };
  const auto update = UpdateOf(MakeValue("2"), PrintedTerm(print));
  CallRecorder recorder;
  EXPECT_EQ(MessageOf([&] { update->PerformUpdate(true); }), "Condition is not met.");
  EXPECT_EQ(update->fValues.size(), 1u);
  EXPECT_THAT(recorder.Lines(), IsEmpty());

  fTable = MakeTable("u", {"a"});
  const auto insert = InsertOf(PrintedValue(print));
  insert->fQuery << "earlier; ";
  recorder.Clear();
  EXPECT_EQ(MessageOf([&] { insert->PerformInsert(true); }), "Condition is not met.");
  EXPECT_EQ(insert->fQuery.str(), "earlier; ");
  EXPECT_EQ(insert->fValues.size(), 1u);
  EXPECT_THAT(recorder.Lines(), IsEmpty());
}

TEST_F(TextStreamTest, TermMayAskWhereItIsAndGoBack) {
  const auto print = [](std::ostream& out) {
    const std::streampos start = out.tellp();
    EXPECT_EQ(start, std::streampos(19));
    out << " a IN (1, 2, 3";
    out.put(',');
    out.seekp(-1, std::ios::cur) << ')';
    EXPECT_EQ(out.tellp() - start, 15);
    out.seekp(start + std::streamoff(7)) << "4, 5";
    EXPECT_EQ(out.tellp() - start, 11);
    out.seekp(0, std::ios::end) << " OR a = 9";
  };
  const auto statement = fTable->NewDelete(PrintedTerm(print));
  statement->SetUpDelete();
  EXPECT_EQ(statement->fQuery, "DELETE FROM t WHERE a IN (4, 5, 3) OR a = 9");
}

TEST_F(TextStreamTest, TermCannotLeaveTheText) {
  const auto print = [](std::ostream& out) {
    std::streambuf& buffer = *out.rdbuf();
    const std::streampos nowhere(std::streamoff(-1));
    EXPECT_EQ(buffer.pubseekoff(1, std::ios::end, std::ios::out), nowhere);
    EXPECT_EQ(buffer.pubseekoff(-1, std::ios::beg, std::ios::out), nowhere);
    EXPECT_EQ(buffer.pubseekoff(0, std::ios::beg, std::ios::in), nowhere);
    out << " a = 1";
  };
  const auto statement = fTable->NewDelete(PrintedTerm(print));
  statement->SetUpDelete();
  EXPECT_EQ(statement->fQuery, "DELETE FROM t WHERE a = 1");
}

// A delete has the text copied to where it keeps it, an update lets the stream keep it beside its buffer.
TEST_F(TextStreamTest, MemoryOfAVeryLongTextIsGivenBack) {
  const auto allocationsOf = [this](const std::string& condition, bool isUpdate) {
    const auto deletion = fTable->NewDelete(MakeTerm(condition));
    const auto update = UpdateOf(MakeValue("1"), MakeTerm(condition));
    const AllocationCount count;
    if (isUpdate) {
      update->PerformUpdate(false);
    } else {
      deletion->SetUpDelete();
    }
    return count.Count();
  };
  const std::string shortCondition = " a = 1 AND a < 2 AND a < 3 AND a < 4";
  for (const bool isUpdate : {false, true}) {
    allocationsOf(" a = 1" + std::string(100000, ' '), isUpdate);
    const std::uint64_t afterLong = allocationsOf(shortCondition, isUpdate);
    EXPECT_EQ(afterLong, allocationsOf(shortCondition, isUpdate) + (isUpdate ? 2 : 1));
  }
}

// Texts that a Print leaves incomplete. Each way in which it may do so is tried on each statement.

struct Mishap {
  const char* fName;
  void (*fPrint)(std::ostream&);
  // True when `action` throws what the mishap stands for.
  bool (*fIsThrownBy)(const std::function<void()>& action);
};

template <typename Exception>
bool Throws(const std::function<void()>& action) {
  try {
    action();
  } catch (const Exception&) {
    return true;
  } catch (...) {
  }
  return false;
}

class MishapTest : public TextStreamTest, public ::testing::WithParamInterface<Mishap> {
 protected:
  boost::shared_ptr<SQLTermBase> Term() {
    return PrintedTerm([](std::ostream& out) {
      out << " a = 1";
      GetParam().fPrint(out);
      out << " AND a = 2";
    });
  }
  boost::shared_ptr<SQLValueBase> Value() {
    return PrintedValue([](std::ostream& out) {
      out << "7";
      GetParam().fPrint(out);
      out << " + 1";
    });
  }
  // Fails the test unless `action` throws what it should, and sends nothing.
  void ExpectNothingSent(const std::function<void()>& action) {
    CallRecorder recorder;
    EXPECT_TRUE(GetParam().fIsThrownBy(action));
    EXPECT_THAT(recorder.Lines(), IsEmpty());
    EXPECT_THAT(Content(), ElementsAre("1"));
  }
};

TEST_P(MishapTest, DeleteSendsNothingAndWorksAfterwards) {
  const auto statement = fTable->NewDelete(Term());
  ExpectNothingSent([&] { statement->PerformDelete(); });
  EXPECT_EQ(statement->fQuery, "");
  statement->fTerm = MakeTerm(" a = 1");
  statement->PerformDelete();
  EXPECT_THAT(Content(), IsEmpty());
}

TEST_P(MishapTest, UpdateSendsNothingAndKeepsItsValues) {
  const auto update = UpdateOf(MakeValue("5"), Term());
  ExpectNothingSent([&] { update->PerformUpdate(true); });
  EXPECT_EQ(update->fValues.size(), 1u);
  update->fTerm = MakeTerm(" a = 1");
  update->PerformUpdate(true);
  EXPECT_THAT(Content(), ElementsAre("5"));
}

TEST_P(MishapTest, UpdateWithAnUnprintableValueSendsNothing) {
  const auto update = UpdateOf(Value(), MakeTerm(" a = 1"));
  ExpectNothingSent([&] { update->PerformUpdate(true); });
}

TEST_P(MishapTest, SelectSendsNothingAndWorksAfterwards) {
  const auto select = SelectOf(Term());
  ExpectNothingSent([&] { select->PerformSelect(NewCursor()); });
  EXPECT_EQ(select->fQuery, "");
  EXPECT_EQ(select->fCallback, nullptr);
  select->fTerm.reset();
  select->PerformSelect(NewCursor());
  EXPECT_EQ(select->fQuery, "SELECT a FROM t");
}

TEST_P(MishapTest, FailedSetupLeavesAnEarlierOneOfTheSelectInPlace) {
  const auto select = SelectOf(nullptr);
  select->SetupSelect(NewCursor());
  const auto* const callback = select->fCallback;
  // Whose memory the next text could take.
  SelectOf(MakeTerm(" a = 1" + std::string(100, ' ')))->SetupSelect(NewCursor());
  select->fTerm = Term();
  EXPECT_TRUE(GetParam().fIsThrownBy([&] { select->SetupSelect(NewCursor()); }));
  EXPECT_EQ(select->fQuery, "SELECT a FROM t");
  EXPECT_EQ(select->fCallback, callback);
}

TEST_P(MishapTest, InsertSendsNothingAndItsStreamServesTheNextSend) {
  const auto insert = InsertOf(Value());
  ExpectNothingSent([&] { insert->PerformInsert(true); });
  EXPECT_EQ(insert->fQuery.str(), "");
  EXPECT_TRUE(insert->fQuery.good());
  EXPECT_EQ(insert->fValues.size(), 1u);
  insert->fValues = {MakeValue("8")};
  insert->PerformInsert(true);
  EXPECT_THAT(Content(), ElementsAre("1", "8"));
}

TEST_P(MishapTest, FailedSetupLeavesTheInsertsStreamAsItWas) {
  const auto insert = InsertOf(MakeValue("7"));
  insert->SetupInsert();
  insert->fValues.push_back(Value());
  EXPECT_TRUE(GetParam().fIsThrownBy([&] { insert->SetupInsert(); }));
  EXPECT_EQ(insert->fQuery.str(), "INSERT INTO t ( a ) VALUES (7 )");
  insert->fQuery << ";";
  EXPECT_EQ(insert->fQuery.str(), "INSERT INTO t ( a ) VALUES (7 );");
}

INSTANTIATE_TEST_SUITE_P(
    Print, MishapTest,
    ::testing::Values(Mishap{"ThrowsBadAlloc", [](std::ostream&) { throw std::bad_alloc(); }, &Throws<std::bad_alloc>},
                      Mishap{"ThrowsItsOwnException", [](std::ostream&) { throw OwnFailure(); }, &Throws<OwnFailure>},
                      Mishap{"SetsBadbit", [](std::ostream& out) { out.setstate(std::ios::badbit); },
                             &Throws<std::ios_base::failure>},
                      Mishap{"SilencesTheStream",
                             [](std::ostream& out) {
                               out.exceptions(std::ios::goodbit);
                               out.setstate(std::ios::badbit);
                             },
                             &Throws<std::ios_base::failure>},
                      Mishap{"SetsFailbit", [](std::ostream& out) { out.setstate(std::ios::failbit); },
                             &Throws<std::ios_base::failure>}),
    [](const auto& instance) { return instance.param.fName; });

TEST_F(TextStreamTest, TermThatSwallowsTheStreamsFailureIsNotSentCutShort) {
  const auto term = PrintedTerm([](std::ostream& out) {
    try {
      out << " a = 1";
      out.setstate(std::ios::badbit);
      out << " AND a = 2";
    } catch (const std::ios_base::failure&) {
    }
  });
  CallRecorder recorder;
  EXPECT_THROW(fTable->NewDelete(term)->PerformDelete(), std::ios_base::failure);
  EXPECT_THROW(UpdateOf(MakeValue("5"), term)->PerformUpdate(true), std::ios_base::failure);
  EXPECT_THROW(SelectOf(term)->PerformSelect(NewCursor()), std::ios_base::failure);
  EXPECT_THAT(recorder.Lines(), IsEmpty());
}

TEST_F(TextStreamTest, ValuesArePrintedWithTheFormattingOfTheInsertsStream) {
  const auto insert = InsertOf(PrintedValue([](std::ostream& out) { out << 1.0 / 3; }));
  insert->fQuery.precision(17);
  insert->SetupInsert();
  EXPECT_EQ(insert->fQuery.str(), "INSERT INTO t ( a ) VALUES (0.33333333333333331 )");
}

// Texts cut short by the stream's own buffer. Each allocation in turn fails, until there are none left.

class AllocationSweepTest : public TextStreamTest {
 protected:
  // The many writes need not reach the disk.
  AllocationSweepTest() { Rows("PRAGMA synchronous = OFF"); }

  // A condition that holds for a = 1, longer than several sizes of the stream's buffer.
  static std::string HugeCondition() {
    std::string text = " a = 1";
    while (text.size() < 3000) text += " AND a IN (1, 2, 3)";
    return text;
  }
  // An expression for 1, as long.
  static std::string HugeExpression() {
    std::string text = "1";
    while (text.size() < 3000) text += " + 1234567890 - 1234567890";
    return text;
  }

  // Prints `text` bit by bit, so that the stream's buffer grows on the way.
  static Printer BitByBit(const std::string& text) {
    return [text](std::ostream& out) {
      for (std::size_t i = 0; i < text.size(); i += 100) out << text.substr(i, 100);
    };
  }

  // Runs `action` with the n-th allocation failing, for n from 1 until it needs fewer. Whatever happens, the texts sent
  // are `whole` or none, and what is thrown is std::bad_alloc. After each run `cleanUp` is told whether the text was
  // sent; after a failure, `action` must then send `whole`.
  void Sweep(const std::string& whole, const std::function<void()>& action,
             const std::function<void(bool wasSent)>& cleanUp) {
    int thrown = 0;
    for (std::uint64_t n = 1; Run(n, action); ++n) {
      SCOPED_TRACE(n);
      if (fHasThrown) ++thrown;
      if (!fHasThrown || !fSent.empty()) {
        EXPECT_THAT(fSent, ElementsAre(whole));
      }
      cleanUp(!fSent.empty());
      Run(0, action);
      EXPECT_THAT(fSent, ElementsAre(whole));
      cleanUp(true);
      if (HasFailure()) return;
    }
    // Otherwise nothing was put to the test: a text of this size takes several buffers.
    EXPECT_GE(thrown, 4);
  }

 private:
  // Runs `action` with the n-th allocation failing, none for 0; true if it came to that.
  bool Run(std::uint64_t n, const std::function<void()>& action) {
    CallRecorder recorder;
    bool hasFailed = false;
    fHasThrown = false;
    // In the middle of another text, whose stream is in use: so this one gets a stream that has no memory yet.
    const auto run = [&](std::ostream&) {
      const AllocationFailure failure(n);
      try {
        action();
      } catch (const std::bad_alloc&) {
        fHasThrown = true;
      }
      hasFailed = failure.Happened();
    };
    fTable->NewDelete(PrintedTerm(run))->SetUpDelete();
    fSent = recorder.Sql();
    return hasFailed;
  }

  bool fHasThrown = false;
  std::vector<std::string> fSent;
};

TEST_F(AllocationSweepTest, SupportSeesTheLibrarysAllocations) {
  const auto statement = fTable->NewDelete(PrintedTerm(BitByBit(HugeCondition())));
  const AllocationCount count;
  statement->SetUpDelete();
  EXPECT_GE(count.Count(), 4u);
}

TEST_F(AllocationSweepTest, DeleteIsSentWholeOrNotAtAll) {
  const auto statement = fTable->NewDelete(PrintedTerm(BitByBit(HugeCondition())));
  Sweep(
      "DELETE FROM t WHERE" + HugeCondition(), [&] { statement->PerformDelete(); },
      [&](bool wasSent) {
        EXPECT_EQ(Content().empty(), wasSent);
        Rows("DELETE FROM t; INSERT INTO t VALUES (1)");
        // So that it needs its allocation again.
        statement->fQuery = std::string();
      });
}

TEST_F(AllocationSweepTest, UpdateIsSentWholeOrNotAtAll) {
  const auto update = UpdateOf(PrintedValue(BitByBit(HugeExpression())), PrintedTerm(BitByBit(HugeCondition())));
  Rows("INSERT INTO t VALUES (2)");
  Sweep(
      "UPDATE t SET a =  " + HugeExpression() + " WHERE" + HugeCondition(), [&] { update->PerformUpdate(false); },
      [&](bool) { EXPECT_THAT(Content(), ElementsAre("1", "2")); });
}

TEST_F(AllocationSweepTest, InsertIsSentWholeOrNotAtAll) {
  const auto insert = InsertOf(PrintedValue(BitByBit(HugeExpression())));
  const std::string whole = "INSERT INTO t ( a ) VALUES (" + HugeExpression() + " )";
  Sweep(
      whole, [&] { insert->PerformInsert(false); },
      [&](bool wasSent) {
        // Kept only by a send that failed: a text that was never sent must not be sent beside the next one.
        EXPECT_THAT(insert->fQuery.str(), AnyOf("", wasSent ? whole : ""));
        EXPECT_TRUE(insert->fQuery.good());
        insert->fQuery.str("");
      });
}

TEST_F(AllocationSweepTest, SetupThatFailsLeavesTheInsertsStreamAsItWas) {
  const auto insert = InsertOf(PrintedValue(BitByBit(HugeExpression())));
  const std::string whole = "INSERT INTO t ( a ) VALUES (" + HugeExpression() + " )";
  bool hasFailed = true;
  for (std::uint64_t n = 1; hasFailed; ++n) {
    SCOPED_TRACE(n);
    insert->fQuery.str("earlier text; ");
    bool hasThrown = false;
    {
      const AllocationFailure failure(n);
      try {
        insert->SetupInsert();
      } catch (const std::bad_alloc&) {
        hasThrown = true;
      }
      hasFailed = failure.Happened();
    }
    EXPECT_EQ(hasThrown, hasFailed);
    EXPECT_EQ(insert->fQuery.str(), hasThrown ? "earlier text; " : "earlier text; " + whole);
    insert->fQuery << "later";
    EXPECT_EQ(insert->fQuery.str(), (hasThrown ? "earlier text; " : "earlier text; " + whole) + "later");
  }
}

TEST_F(AllocationSweepTest, PerformedSelectIsSentWholeOrNotAtAll) {
  const auto select = SelectOf(PrintedTerm(BitByBit(HugeCondition())));
  select->fLimit = 1;
  const auto cursor = NewCursor();
  Sweep(
      "SELECT a FROM t WHERE" + HugeCondition() + " LIMIT 1", [&] { select->PerformSelect(cursor); },
      [&](bool) { delete std::exchange(select->fCallback, nullptr); });
}

TEST_F(AllocationSweepTest, PreparedSelectIsCompiledWholeOrNotAtAll) {
  const auto select = SelectOf(PrintedTerm(BitByBit(HugeCondition())));
  select->fOffset = 1;
  sqldb::OffsetSpec offsets;
  offsets.PushOffset(0, 0);
  boost::shared_ptr<StepCursor> cursor(new StepCursor(&fDatabase, offsets));
  Sweep(
      "SELECT a FROM t WHERE" + HugeCondition() + " LIMIT -1 OFFSET 1", [&] { select->PrepareSelect(cursor); },
      [&](bool) {
        delete std::exchange(select->fCallback, nullptr);
        // A cursor is prepared once.
        cursor.reset(new StepCursor(&fDatabase, offsets));
      });
}

TEST_F(AllocationSweepTest, CreateIsSentWholeOrNotAtAll) {
  const auto table = fDatabase.NewTable("wide");
  std::string whole = "CREATE TABLE wide (";
  for (int i = 0; i < 100; ++i) {
    const std::string name = "column_number_" + std::to_string(i);
    table->AddColumn(MakeColumn(name));
    whole += (i == 0 ? " " : ", ") + name + " INTEGER";
  }
  whole += " );";
  Sweep(
      whole, [&] { table->Create(); },
      [&](bool wasSent) {
        EXPECT_EQ(table->fCreated, wasSent);
        Rows("DROP TABLE IF EXISTS wide");
        table->fCreated = false;
      });
}

}  // namespace
