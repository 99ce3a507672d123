#include "text_stream.h"

#include <algorithm>

namespace sqldb {

namespace {

// Bytes. The memory of a longer text is given back when the next one is begun.
constexpr std::size_t kMostKept = 65536;
constexpr std::size_t kLeastKept = 256;

void GiveBackIfLong(std::string& text) {
  if (text.capacity() > kMostKept) std::string().swap(text);
}

}  // namespace

void TextBuffer::Clear() {
  GiveBackIfLong(fMemory);
  fSize = 0;
  fPosition = 0;
}

void TextBuffer::Grow(std::size_t more) { fMemory.resize(std::max({kLeastKept, 2 * fMemory.size(), fSize + more})); }

std::streamsize TextBuffer::xsputn(const char* text, std::streamsize size) {
  const auto count = static_cast<std::size_t>(size);
  // Over what is there, if a term sought a place before the end.
  const std::size_t end = fPosition + count;
  if (end > fMemory.size()) Grow(end - fSize);
  std::char_traits<char>::copy(fMemory.data() + fPosition, text, count);
  fPosition = end;
  fSize = std::max(fSize, end);
  return size;
}

TextBuffer::int_type TextBuffer::overflow(int_type character) {
  const char text = traits_type::to_char_type(character);
  xsputn(&text, 1);
  return character;
}

TextBuffer::pos_type TextBuffer::seekoff(off_type offset, std::ios::seekdir from, std::ios::openmode which) {
  const auto size = static_cast<off_type>(fSize);
  const off_type start = from == std::ios::beg ? 0 : from == std::ios::cur ? static_cast<off_type>(fPosition) : size;
  const off_type position = start + offset;
  if ((which & std::ios::out) == 0 || position < 0 || position > size) return pos_type(off_type(-1));
  fPosition = static_cast<std::size_t>(position);
  return pos_type(position);
}

TextBuffer::pos_type TextBuffer::seekpos(pos_type position, std::ios::openmode which) {
  return seekoff(off_type(position), std::ios::beg, which);
}

void TextStream::Restart() {
  fBuffer.Clear();
  GiveBackIfLong(fText);
  if (rdbuf() != &fBuffer || !good()) rdbuf(&fBuffer);
  MakeExact(*this);
  flags(std::ios::dec | std::ios::skipws);
  width(0);
  precision(6);
  fill(' ');
  tie(nullptr);
}

}  // namespace sqldb
