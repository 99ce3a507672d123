#ifndef SQLDB_SRC_TEXT_STREAM_H
#define SQLDB_SRC_TEXT_STREAM_H

#include <charconv>
#include <cstddef>
#include <cstdint>
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
inline void ThrowOnLoss(std::ostream& stream) {
  constexpr std::ios::iostate kLoss = std::ios::badbit | std::ios::failbit;
  // To ask is cheaper than to set.
  if (!stream.good() || stream.exceptions() != kLoss) stream.exceptions(kLoss);
}

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

// Lets a stream write into memory that is kept for the next text.
class TextBuffer : public std::streambuf {
 public:
  void Append(std::string_view text) {
    if (text.size() > fMemory.size() - fSize) Grow(text.size());
    std::char_traits<char>::copy(fMemory.data() + fSize, text.data(), text.size());
    fSize += text.size();
    fPosition = fSize;
  }
  void Clear();
  std::string_view Text() const { return {fMemory.data(), fSize}; }

 protected:
  std::streamsize xsputn(const char* text, std::streamsize size) override;
  int_type overflow(int_type character) override;
  pos_type seekoff(off_type offset, std::ios::seekdir from, std::ios::openmode which) override;
  pos_type seekpos(pos_type position, std::ios::openmode which) override;

 private:
  void Grow(std::size_t more);

  // Filled up to fSize. A string's own size would have to be set anew for every piece of text.
  std::string fMemory;
  std::size_t fSize = 0;
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

  // Appends the number in decimal.
  TextStream& Add(std::uint32_t number) {
    char digits[10];
    const std::to_chars_result last = std::to_chars(digits, digits + sizeof digits, number);
    return Add(std::string_view(digits, static_cast<std::size_t>(last.ptr - digits)));
  }

  // Puts the finished text into `text`. Throws if any of it was lost, even where a term caught the stream's exception
  // and went on.
  void CopyTo(std::string& text) {
    ThrowOnLoss(*this);
    // Cheaper than an assignment.
    text.clear();
    text.append(fBuffer.Text());
  }

  // The finished text in memory that is kept, too; valid until the next call. Throws as CopyTo does.
  const std::string& Text() {
    CopyTo(fText);
    return fText;
  }

 private:
  friend class TextLoan;

  TextBuffer fBuffer;
  std::string fText;
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
