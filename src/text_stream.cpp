#include "text_stream.h"

#include <algorithm>

namespace sqldb {

namespace {

// Bytes. The memory of a longer text is given back when the next one is begun.
constexpr std::size_t kMostKept = 65536;

}  // namespace

void StringBuffer::Clear() {
  if (fText.capacity() > kMostKept) std::string().swap(fText);
  fText.clear();
  fPosition = 0;
}

std::streamsize StringBuffer::xsputn(const char* text, std::streamsize size) {
  const auto count = static_cast<std::size_t>(size);
  if (fPosition == fText.size()) {
    fText.append(text, count);
  } else {
    fText.replace(fPosition, count, text, count);
  }
  fPosition += count;
  return size;
}

StringBuffer::int_type StringBuffer::overflow(int_type character) {
  const char text = traits_type::to_char_type(character);
  xsputn(&text, 1);
  return character;
}

StringBuffer::pos_type StringBuffer::seekoff(off_type offset, std::ios::seekdir from, std::ios::openmode which) {
  const auto size = static_cast<off_type>(fText.size());
  const off_type start = from == std::ios::beg ? 0 : from == std::ios::cur ? static_cast<off_type>(fPosition) : size;
  const off_type position = start + offset;
  if ((which & std::ios::out) == 0 || position < 0 || position > size) return pos_type(off_type(-1));
  fPosition = static_cast<std::size_t>(position);
  return pos_type(position);
}

StringBuffer::pos_type StringBuffer::seekpos(pos_type position, std::ios::openmode which) {
  return seekoff(off_type(position), std::ios::beg, which);
}

void TextStream::Restart() {
  fBuffer.Clear();
  rdbuf(&fBuffer);
  MakeExact(*this);
  flags(std::ios::dec | std::ios::skipws);
  width(0);
  precision(6);
  fill(' ');
  tie(nullptr);
}

}  // namespace sqldb
