#include "core/persistence/bplist/StringColumn.h"

namespace brimvale {

StringColumn::StringColumn(std::initializer_list<std::string_view> values) {
    reserve(values.size());
    for (const std::string_view value : values) {
        push_back(value);
    }
}

StringColumn::StringColumn(const std::vector<std::string>& values) {
    reserve(values.size());
    for (const std::string& value : values) {
        push_back(value);
    }
}

void StringColumn::reserve(std::size_t count, std::size_t textBytes) {
    if (textBytes > 0) {
        text_.reserve(textBytes);
        ends_.reserve(count);
    }
}

void StringColumn::push_back(std::string_view value) {
    if (!value.empty() && ends_.empty()) {
        // The first string with text: the empty ones before it get their ends now.
        ends_.assign(count_, 0);
    }
    ++count_;
    if (!ends_.empty() || !value.empty()) {
        text_.append(value);
        ends_.push_back(text_.size());
    }
}

void StringColumn::assign(std::size_t count, std::string_view value) {
    count_ = 0;
    text_.clear();
    ends_.clear();
    reserve(count, count * value.size());
    for (std::size_t i = 0; i < count; ++i) {
        push_back(value);
    }
}

void StringColumn::resizeForPlacing(std::size_t count, std::size_t textBytes) {
    count_ = count;
    text_.resize(textBytes);
    if (textBytes > 0) {
        ends_.resize(count);
    } else {
        ends_.clear();
    }
}

std::vector<std::string> StringColumn::strings() const {
    std::vector<std::string> result;
    result.reserve(count_);
    for (std::size_t i = 0; i < count_; ++i) {
        result.emplace_back((*this)[i]);
    }
    return result;
}

bool operator==(const StringColumn& a, const StringColumn& b) {
    if (a.count_ != b.count_) {
        return false;
    }
    for (std::size_t i = 0; i < a.count_; ++i) {
        if (a[i] != b[i]) {
            return false;
        }
    }
    return true;
}

bool operator==(const StringColumn& column, const std::vector<std::string>& strings) {
    if (column.size() != strings.size()) {
        return false;
    }
    for (std::size_t i = 0; i < strings.size(); ++i) {
        if (column[i] != strings[i]) {
            return false;
        }
    }
    return true;
}

} // namespace brimvale
