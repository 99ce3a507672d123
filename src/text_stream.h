#ifndef SQLDB_SRC_TEXT_STREAM_H
#define SQLDB_SRC_TEXT_STREAM_H

#include <cstddef>
#include <locale>
#include <ostream>
#include <streambuf>
#include <string>
#include <string_view>

#include <boost/make_shared.hpp>
#include <boost/shared_ptr.hpp>

namespace sqldb {

// Makes `stream` throw once something was lost, now or later. A stream that swallows a failure goes quiet, so that a
// delete would be cut off before its WHERE and remove every row.
inline void ThrowOnLoss(std::ostream& stream) { stream.exceptions(std::ios::badbit | std::ios::failbit); }

// To set a locale costs as much as to build a short text.
inline void ImbueIfOther(std::ostream& stream, const std::locale& locale) {
  if (stream.getloc() != locale) stream.imbue(locale);
}

// Makes `stream` fit for SQL: the classic locale keeps a digit-grouping global locale out of the numbers ("LIMIT
// 1,000").
inline void MakeExact(std::ostream& stream) {
  ImbueIfOther(stream, std::locale::classic());
  ThrowOnLoss(stream);
}

// Lets a stream write into a string, which is there to be read without a copy.
class StringBuffer : public std::streambuf {
 public:
  void Append(std::string_view text) {
    fText += text;
    fPosition = fText.size();
  }
  void Clear();

  std::string fText;

 protected:
  std::streamsize xsputn(const char* text, std::streamsize size) override;
  int_type overflow(int_type character) override;
  pos_type seekoff(off_type offset, std::ios::seekdir from, std::ios::openmode which) override;
  pos_type seekpos(pos_type position, std::ios::openmode which) override;

 private:
  // Where the next character goes: to the end, unless a term sought another place.
  std::size_t fPosition = 0;
};

// The stream in which a statement's text is built. Kept for the next text, since a new one costs more than most texts
// do.
class TextStream : public std::ostream {
 public:
  TextStream() : std::ostream(nullptr) { Restart(); }

  // Makes it like new: empty, with the default formatting. Only what was stored by iword, pword and register_callback
  // stays.
  void Restart();

  // Appends `text` as it stands, whatever formatting a term has left. Cheaper than <<.
  TextStream& Add(std::string_view text) {
    fBuffer.Append(text);
    return *this;
  }

  // The finished text, valid until the next change. Throws if any of it was lost, even where a term caught the stream's
  // exception and went on.
  const std::string& Text() {
    ThrowOnLoss(*this);
    return fBuffer.fText;
  }

 private:
  friend class TextLoan;

  StringBuffer fBuffer;
  bool fIsLent = false;
};

// The use of a kept stream for one text. What is printed in the middle of it may build texts of its own: those get
// streams of their own.
class TextLoan {
 public:
  explicit TextLoan(const boost::shared_ptr<TextStream>& kept)
      : fStream(kept->fIsLent ? boost::make_shared<TextStream>() : kept) {
    fStream->fIsLent = true;
    fStream->Restart();
  }
  ~TextLoan() { fStream->fIsLent = false; }
  TextLoan(const TextLoan&) = delete;
  TextLoan& operator=(const TextLoan&) = delete;

  TextStream& operator*() { return *fStream; }
  TextStream* operator->() { return fStream.get(); }

 private:
  // Shared, since its owner may be destroyed meanwhile.
  boost::shared_ptr<TextStream> fStream;
};

}  // namespace sqldb

#endif  // SQLDB_SRC_TEXT_STREAM_H
