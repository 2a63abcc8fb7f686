#pragma once

#include "core/support/FatalError.h"

#include <cstdint>
#include <string>
#include <utility>

namespace brimvale {

// What a running scan is doing, with the text its lister supplies.
class Stage {
public:
    enum class Kind { listing, computing, complete };

    static Stage listing(std::string text) { return Stage(Kind::listing, std::move(text)); }
    static Stage computing(std::string text) { return Stage(Kind::computing, std::move(text)); }
    static Stage complete() { return Stage(Kind::complete, {}); }

    Kind kind() const { return kind_; }
    // The lister's text; empty for complete.
    const std::string& text() const { return text_; }

    friend bool operator==(const Stage&, const Stage&) = default;

private:
    Stage(Kind kind, std::string text)
        : kind_(kind)
        , text_(std::move(text)) {}
    Kind kind_;
    std::string text_;
};

// The progress value that listers report while they scan.
struct ScanProgress {
    Stage stage = Stage::complete();
    std::int64_t filesScanned = 0;
    std::int64_t foldersScanned = 0;
    std::int64_t bytesAccountedFor = 0; // bytes of the files seen so far

    std::int64_t itemsScanned() const {
        return checkedAdd(filesScanned, foldersScanned, "item count overflow in scan progress");
    }

    friend bool operator==(const ScanProgress&, const ScanProgress&) = default;
};

} // namespace brimvale
