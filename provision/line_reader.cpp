#include "provision/line_reader.h"

#include "base/secret.h"

namespace kelt::provision {

LineReader::~LineReader() {
  // The password has gone through it, and so has whatever was typed ahead.
  base::wipe(m_buffer.data(), m_buffer.size());
}

std::string LineReader::next() {
  std::string line;
  line.reserve(kMaxLength);  // no copies of a password are left behind by growing
  while (!m_over) {
    const int byte = peek();
    // A line that is too long ends the reading: what follows is the rest of it, and no answer to anything.
    if (byte == kEnd || (byte != '\n' && line.size() == kMaxLength)) {
      m_over = true;
      break;
    }
    ++m_at;
    if (byte == '\n') break;
    line += static_cast<char>(byte);
  }
  // libcurl takes these texts up to their first zero byte; they are cut here, once for all uses.
  if (const std::size_t zero = line.find('\0'); zero != std::string::npos) line.resize(zero);
  return line;
}

int LineReader::peek() {
  if (m_at == m_filled) {
    m_at = 0;
    m_filled = m_source(m_buffer);
  }
  return m_at == m_filled ? kEnd : static_cast<unsigned char>(m_buffer[m_at]);
}

}  // namespace kelt::provision
