#include "provision/reply.h"

#include <exception>

namespace kelt::provision {

void Reply::reserve() noexcept {
  try {
    m_text.reserve(kMaxReply);
  } catch (const std::exception&) {
    return;  // it then grows as it can
  }
}

void Reply::add(std::string_view piece) noexcept {
  // Without what is missing, what follows it would make another text of the reply.
  m_bCut = m_bCut || piece.size() > kMaxReply - m_text.size();
  if (m_bCut) return;
  try {
    m_text.append(piece);
  } catch (const std::exception&) {
    m_bCut = true;
  }
}

void Reply::clear() noexcept {
  m_text.clear();
  m_bCut = false;
}

}  // namespace kelt::provision
