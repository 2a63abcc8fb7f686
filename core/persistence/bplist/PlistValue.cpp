#include "core/persistence/bplist/PlistValue.h"

#include "core/support/CorruptDataError.h"

namespace brimvale {
namespace {

class TreeDecoder {
public:
    explicit TreeDecoder(const BinaryPlistReader& reader)
        : reader_(reader)
        , onPath_(static_cast<std::size_t>(reader.objectCount()), false) {}

    PlistValue decode(PlistRef ref, std::size_t depth) {
        charge(sizeof(PlistValue));
        switch (reader_.kind(ref)) {
        case PlistKind::Null:
            return {};
        case PlistKind::Boolean:
            return reader_.boolean(ref);
        case PlistKind::Integer:
            if (reader_.integerFitsInt64(ref)) {
                return reader_.integer(ref);
            }
            return reader_.unsignedInteger(ref);
        case PlistKind::Real:
            return reader_.real(ref);
        case PlistKind::Date:
            return PlistDate{reader_.date(ref)};
        case PlistKind::Data: {
            const auto bytes = reader_.data(ref);
            charge(bytes.size());
            return PlistData(bytes.begin(), bytes.end());
        }
        case PlistKind::String:
            return text(ref);
        case PlistKind::Uid:
            return PlistUid{reader_.uid(ref)};
        case PlistKind::Array:
            return container(ref, depth, [&] { return elements(ref, depth); });
        case PlistKind::Set:
            return container(ref, depth, [&] { return PlistSet{elements(ref, depth)}; });
        case PlistKind::Dictionary:
            return container(ref, depth, [&] { return dictionary(ref, depth); });
        }
        return {};
    }

private:
    void charge(std::uint64_t bytes) {
        const std::uint64_t budget = reader_.limits().maxDecodedBytes;
        if (bytes > budget - used_) {
            throw CorruptDataError("binary property list: value tree exceeds " +
                                   std::to_string(budget) + " decoded bytes");
        }
        used_ += bytes;
    }

    std::string text(PlistRef ref) {
        std::string value = reader_.string(ref);
        charge(value.size());
        return value;
    }

    template <class Decode>
    PlistValue container(PlistRef ref, std::size_t depth, Decode&& decodeContents) {
        if (depth >= reader_.limits().maxDepth) {
            throw CorruptDataError("binary property list: nesting deeper than " +
                                   std::to_string(reader_.limits().maxDepth) + " at object " +
                                   std::to_string(ref));
        }
        const auto index = static_cast<std::size_t>(ref);
        if (onPath_[index]) {
            throw CorruptDataError("binary property list: object " + std::to_string(ref) +
                                   " contains itself");
        }
        onPath_[index] = true;
        PlistValue value = decodeContents();
        onPath_[index] = false;
        return value;
    }

    PlistArray elements(PlistRef ref, std::size_t depth) {
        const PlistRefs refs = reader_.elements(ref);
        charge(refs.size() * sizeof(PlistValue));
        PlistArray values;
        values.reserve(refs.size());
        for (std::size_t i = 0; i < refs.size(); ++i) {
            values.push_back(decode(refs[i], depth + 1));
        }
        return values;
    }

    PlistDictionary dictionary(PlistRef ref, std::size_t depth) {
        const PlistDictionaryRefs entries = reader_.dictionary(ref);
        charge(entries.keys.size() * sizeof(PlistDictionary::value_type));
        PlistDictionary values;
        values.reserve(entries.keys.size());
        for (std::size_t i = 0; i < entries.keys.size(); ++i) {
            const PlistRef key = entries.keys[i];
            if (reader_.kind(key) != PlistKind::String) {
                throw CorruptDataError("binary property list: key " + std::to_string(i) +
                                       " of dictionary " + std::to_string(ref) +
                                       " is not a string");
            }
            std::string name = text(key);
            values.emplace_back(std::move(name), decode(entries.values[i], depth + 1));
        }
        return values;
    }

    const BinaryPlistReader& reader_;
    std::vector<bool> onPath_;
    std::uint64_t used_ = 0;
};

} // namespace

const PlistValue* PlistValue::find(std::string_view key) const {
    if (const auto* entries = std::get_if<PlistDictionary>(&storage_)) {
        for (const auto& [name, value] : *entries) {
            if (name == key) {
                return &value;
            }
        }
    }
    return nullptr;
}

PlistValue decodePlistValue(const BinaryPlistReader& reader, PlistRef ref) {
    return TreeDecoder(reader).decode(ref, 0);
}

PlistValue readPlistValue(std::span<const std::uint8_t> bytes, PlistReadLimits limits) {
    const BinaryPlistReader reader(bytes, limits);
    return decodePlistValue(reader, reader.topObject());
}

} // namespace brimvale
