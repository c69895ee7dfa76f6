#pragma once
// The archive in a reply, which is base64 of any length.

#include <cstddef>
#include <functional>
#include <span>
#include <string_view>

namespace kelt::provision {

/// How a decoding ended.
enum class Decoding {
  kDone,       ///< all of it was base64, and the sink has taken all
  kNoBase64,   ///< a character that is none, text after padding, or a group that the end cuts off
  kNotStored,  ///< the sink wanted no more, or there was no memory for a piece
};

/// Takes a piece of what was decoded. Returns false to end the decoding.
using PieceSink = std::function<bool(std::span<const unsigned char>)>;

/// The characters of a reply that are decoded at once.
inline constexpr std::size_t kPiece = std::size_t{64} * 1024;

/// Decodes base64 piece by piece, so that it takes no more memory than a few pieces of `piece` characters (at least 1).
/// Accepts what ABase64Encode::decode accepts as a whole, and gives the same bytes; a text that turns out to be none
/// only further on has given `sink` what came before. Throws nothing of its own; want of memory and an exception of
/// `sink` count as kNotStored.
[[nodiscard]] Decoding decodeInPieces(std::string_view base64, const PieceSink& sink, std::size_t piece = kPiece);

}  // namespace kelt::provision
