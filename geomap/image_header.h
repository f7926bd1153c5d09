// Width and height of a map image read from its file header (BMP or JPEG), without decoding the picture.
// geotool and an owner-less calibration use it to learn the image size that corners and resolution need.
#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace qv {

enum TImageFileKind : std::uint8_t { ifkUnknown, ifkBMP, ifkJPEG };

// Size in pixels from the first bytes of an image file. The kind is recognised by the content ("BM" or
// the JPEG start-of-image marker), not by the file name. False for unknown, truncated or malformed
// headers and for sizes that are not positive; Width and Height are then left unchanged.
bool ReadImageSize(std::span<const std::uint8_t> Bytes, std::int32_t& Width, std::int32_t& Height,
                   TImageFileKind* Kind = nullptr);

// The same for a file; reads no more than the header needs (for a JPEG, up to the frame header).
bool ReadImageSize(const std::string& FName, std::int32_t& Width, std::int32_t& Height,
                   TImageFileKind* Kind = nullptr);

}  // namespace qv
