#include "zip/Crc32.h"

namespace zip {
namespace {

// Polynomials over GF(2) modulo the one of CRC-32, coefficients mirrored: the top bit is x^0.
constexpr std::uint32_t one = 0x80000000;
constexpr std::uint32_t xToThe8th = 0x00800000;
constexpr std::uint32_t modulus = 0xEDB88320;

std::uint32_t multiply(std::uint32_t a, std::uint32_t b) {
    std::uint32_t product = 0;
    for (std::uint32_t bit = one; bit != 0; bit >>= 1) {
        if ((a & bit) != 0)
            product ^= b;
        b = (b >> 1) ^ ((b & 1) != 0 ? modulus : 0);
    }
    return product;
}

} // namespace

std::uint32_t crc32OfJoined(std::uint32_t first, std::uint32_t second, std::uint64_t secondLength) {
    // Each byte that follows multiplies what came before by x^8.
    std::uint32_t shift = one;
    for (std::uint32_t square = xToThe8th; secondLength != 0; secondLength >>= 1) {
        if ((secondLength & 1) != 0)
            shift = multiply(shift, square);
        square = multiply(square, square);
    }
    return multiply(first, shift) ^ second;
}

} // namespace zip
