#include "sign/plist/BinaryPropertyList.h"

#include "base/ByteReader.h"
#include "base/Printable.h"
#include "base/Utf8.h"
#include "sign/plist/PropertyListReader.h"

#include <algorithm>
#include <bit>
#include <limits>

namespace sign {

namespace {

constexpr std::uint64_t mostObjects = 1'000'000;

enum class Problem { None, Damaged, Depth, Growth };

std::uint64_t bigNumber(base::Bytes bytes) {
    std::uint64_t number = 0;
    for (const std::uint8_t byte : bytes)
        number = number << 8U | byte;
    return number;
}

class BinaryReader {
public:
    explicit BinaryReader(base::Bytes bytes) : bytes_(bytes) {}

    /// False if there is a problem.
    bool read(PropertyValue& value) {
        constexpr std::size_t headerSize = 8;
        constexpr std::size_t trailerSize = 32;
        if (bytes_.size() < headerSize + trailerSize)
            return fail(Problem::Damaged);
        const base::Bytes trailer = bytes_.last(trailerSize);
        const std::uint64_t end = bytes_.size() - trailerSize;
        offsetSize_ = trailer[6];
        referenceSize_ = trailer[7];
        count_ = bigNumber(trailer.subspan(8, 8));
        table_ = bigNumber(trailer.subspan(24, 8));
        if (offsetSize_ == 0 || offsetSize_ > 8 || referenceSize_ == 0 || referenceSize_ > 8 ||
            table_ > end || count_ > (end - table_) / offsetSize_)
            return fail(Problem::Damaged);
        return readObject(bigNumber(trailer.subspan(16, 8)), 1, value);
    }

    [[nodiscard]] Problem problem() const { return problem_; }

private:
    bool fail(Problem problem) {
        problem_ = problem;
        return false;
    }

    /// The bytes of an object from its marker on; none if the number is no object's.
    base::Bytes bytesOf(std::uint64_t object) const {
        if (object >= count_)
            return {};
        const std::uint64_t at =
            bigNumber(bytes_.subspan(table_ + object * offsetSize_, offsetSize_));
        return at < table_ ? bytes_.subspan(at, table_ - at) : base::Bytes();
    }

    bool readObject(std::uint64_t object, unsigned depth, PropertyValue& value) {
        if (depth > mostPropertyLevels)
            return fail(Problem::Depth);
        base::ByteReader reader(bytesOf(object));
        const auto marker = reader.takeBig<std::uint8_t>();
        if (reader.failed())
            return fail(Problem::Damaged);
        if (++objects_ > mostObjects)
            return fail(Problem::Growth);
        const unsigned kind = marker >> 4U;
        switch (kind) {
        case 0:
            value = marker == 9;
            return marker == 8 || marker == 9 || fail(Problem::Damaged);
        case 1:
        case 2:
        case 3:
            return readNumber(kind, reader.take(std::size_t{1} << std::min(marker & 0xFU, 4U)),
                              value);
        case 4:
            return readData(marker, reader, value);
        case 5:
        case 6: {
            std::string text;
            if (!readText(marker, reader, text))
                return false;
            value = std::move(text);
            return true;
        }
        case 0xA:
            return readArray(marker, reader, depth, value);
        case 0xD:
            return readDictionary(marker, reader, depth, value);
        default:
            return fail(Problem::Damaged);
        }
    }

    /// Of the long ones only those come up that are past 2^63 - 1.
    static PropertyValue integerOf(base::Bytes bytes) {
        const std::size_t size = std::min<std::size_t>(bytes.size(), 8);
        const std::uint64_t number = bigNumber(bytes.last(size));
        const bool isLarge = bytes.size() > size && bigNumber(bytes.first(size)) == 0 &&
                             number > std::numeric_limits<std::int64_t>::max();
        return isLarge ? PropertyValue(number) : PropertyValue(static_cast<std::int64_t>(number));
    }

    bool readNumber(unsigned kind, base::Bytes bytes, PropertyValue& value) {
        const bool isInteger = kind == 1;
        const bool isFloat = kind == 2 && bytes.size() == 4;
        if (bytes.empty() || (!isInteger && !isFloat && bytes.size() != 8))
            return fail(Problem::Damaged);
        if (isInteger)
            value = integerOf(bytes);
        else if (isFloat)
            value = double{std::bit_cast<float>(static_cast<std::uint32_t>(bigNumber(bytes)))};
        else if (kind == 2)
            value = std::bit_cast<double>(bigNumber(bytes));
        else
            value = PropertyDate{std::bit_cast<double>(bigNumber(bytes))};
        return true;
    }

    bool readData(std::uint8_t marker, base::ByteReader& reader, PropertyValue& value) {
        std::size_t size = 0;
        if (!takeSize(marker, reader, 1, size))
            return false;
        const base::Bytes bytes = reader.take(size);
        value = PropertyData(bytes.begin(), bytes.end());
        return true;
    }

    /// Keys must be texts as well, so this is apart from readObject().
    bool readText(std::uint8_t marker, base::ByteReader& reader, std::string& text) {
        const unsigned kind = marker >> 4U;
        const std::size_t width = kind == 6 ? 2 : 1;
        std::size_t size = 0;
        if (kind != 5 && kind != 6)
            return fail(Problem::Damaged);
        if (!takeSize(marker, reader, width, size))
            return false;
        const base::Bytes bytes = reader.take(size * width);
        const bool isAscii =
            std::all_of(bytes.begin(), bytes.end(), [](std::uint8_t byte) { return byte < 0x80; });
        text = kind == 6 ? base::utf8OfUtf16(bytes) : std::string(base::textOf(bytes));
        return kind == 6 || isAscii || fail(Problem::Damaged);
    }

    bool readArray(std::uint8_t marker, base::ByteReader& reader, unsigned depth,
                   PropertyValue& value) {
        std::size_t size = 0;
        if (!takeSize(marker, reader, referenceSize_, size))
            return false;
        PropertyArray array;
        for (std::size_t index = 0; index < size; ++index) {
            if (!readObject(takeReference(reader), depth + 1, array.emplace_back()))
                return false;
        }
        value = std::move(array);
        return true;
    }

    /// All keys come before all values.
    bool readDictionary(std::uint8_t marker, base::ByteReader& keys, unsigned depth,
                        PropertyValue& value) {
        std::size_t size = 0;
        if (!takeSize(marker, keys, 2 * referenceSize_, size))
            return false;
        base::ByteReader values(keys.rest().subspan(size * referenceSize_));
        PropertyDictionary dictionary;
        for (std::size_t index = 0; index < size; ++index) {
            auto& entry = dictionary.emplace_back();
            base::ByteReader key(bytesOf(takeReference(keys)));
            const auto keyMarker = key.takeBig<std::uint8_t>();
            if (!readText(keyMarker, key, entry.first) ||
                !readObject(takeReference(values), depth + 1, entry.second))
                return false;
        }
        keepLastOfEachKey(dictionary);
        value = std::move(dictionary);
        return true;
    }

    std::uint64_t takeReference(base::ByteReader& reader) const {
        return bigNumber(reader.take(referenceSize_));
    }

    /// How many elements of `width` bytes follow the marker.
    bool takeSize(std::uint8_t marker, base::ByteReader& reader, std::size_t width,
                  std::size_t& size) {
        size = marker & 0xFU;
        if (size == 0xF)
            size = bigNumber(reader.take(std::size_t{1} << (reader.takeBig<std::uint8_t>() & 3U)));
        if (reader.failed() || size > reader.size() / width)
            return fail(Problem::Damaged);
        grown_ += size * width;
        return grown_ <= mostPropertyListBytes || fail(Problem::Growth);
    }

    base::Bytes bytes_;
    std::size_t offsetSize_ = 0;
    std::size_t referenceSize_ = 0;
    std::uint64_t count_ = 0;
    std::uint64_t table_ = 0;
    std::uint64_t objects_ = 0;
    std::uint64_t grown_ = 0;
    Problem problem_ = Problem::None;
};

} // namespace

bool isBinaryPropertyList(base::Bytes bytes) {
    return base::textOf(bytes).starts_with("bplist00");
}

base::Result<PropertyValue> readBinaryPropertyList(base::Bytes bytes, std::string_view name) {
    BinaryReader reader(bytes);
    PropertyValue value;
    if (reader.read(value))
        return value;
    if (reader.problem() == Problem::Depth)
        return tooDeepPropertyList(name);
    if (reader.problem() == Problem::Growth)
        return base::Error{base::ErrorKind::Unsupported,
                           "The property list \"" + base::printable(name) +
                               "\" holds more than 1,000,000 values or 64 MB. Make it smaller."};
    return damagedPropertyList(name);
}

} // namespace sign
