#pragma once

// A column of strings packed into one buffer: a million names cost one allocation and a few
// bytes of bookkeeping each, instead of a string object (and often a heap block) apiece. Saved
// scans are made of such columns, and fresh memory is the largest cost of saving one.

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace brimvale {

class StringColumn {
public:
    StringColumn() = default;
    StringColumn(std::initializer_list<std::string_view> values);
    StringColumn(const std::vector<std::string>& values);

    // Room for `count` strings of `textBytes` bytes in all.
    void reserve(std::size_t count, std::size_t textBytes = 0);
    void push_back(std::string_view value);
    void emplace_back(std::string_view value = {}) { push_back(value); }
    void assign(std::size_t count, std::string_view value);

    // For filling a column out of order, from several threads at once: makes it `count` strings
    // of `textBytes` bytes in all, each then given once by place(). String i must be placed at
    // the text offset that is the sum of the sizes of strings 0 .. i-1.
    void resizeForPlacing(std::size_t count, std::size_t textBytes);
    void place(std::size_t index, std::size_t textOffset, std::string_view value) {
        if (!value.empty()) {
            std::memcpy(text_.data() + textOffset, value.data(), value.size());
        }
        if (!ends_.empty()) {
            ends_[index] = textOffset + value.size();
        }
    }

    std::size_t size() const { return count_; }
    bool empty() const { return count_ == 0; }
    std::string_view operator[](std::size_t index) const {
        if (ends_.empty()) {
            return {};
        }
        const std::size_t begin = index == 0 ? 0 : ends_[index - 1];
        return {text_.data() + begin, ends_[index] - begin};
    }
    std::string_view back() const { return (*this)[count_ - 1]; }
    std::vector<std::string> strings() const;

    friend bool operator==(const StringColumn& a, const StringColumn& b);
    friend bool operator==(const StringColumn& column, const std::vector<std::string>& strings);

private:
    std::size_t count_ = 0;
    std::string text_;
    // Where each string ends in text_; empty while every string is empty (sparse columns).
    std::vector<std::size_t> ends_;
};

namespace bplist {

// A read-only view of a column of strings, packed or not.
class StringColumnView {
public:
    StringColumnView(std::span<const std::string> strings)
        : strings_(strings.data())
        , count_(strings.size()) {}
    StringColumnView(const std::vector<std::string>& strings)
        : StringColumnView(std::span<const std::string>(strings)) {}
    StringColumnView(const StringColumn& packed)
        : packed_(&packed)
        , count_(packed.size()) {}

    std::size_t size() const { return count_; }
    std::string_view operator[](std::size_t index) const {
        return packed_ != nullptr ? (*packed_)[index] : std::string_view(strings_[index]);
    }

private:
    const std::string* strings_ = nullptr;
    const StringColumn* packed_ = nullptr;
    std::size_t count_ = 0;
};

} // namespace bplist
} // namespace brimvale
