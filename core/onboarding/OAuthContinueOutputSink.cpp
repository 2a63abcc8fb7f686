#include "core/onboarding/OAuthContinueOutputSink.h"

#include <array>

namespace brimvale {
namespace {

// The byte length of the white space character at `at` (what \s matches: ASCII white space,
// NEXT LINE and the Unicode space separators), or 0.
std::size_t whitespaceLengthAt(std::string_view text, std::size_t at) {
    const char c = text[at];
    if (c == ' ' || (c >= '\t' && c <= '\r')) {
        return 1;
    }
    const std::string_view rest = text.substr(at);
    if (rest.starts_with("\xC2\x85") || rest.starts_with("\xC2\xA0")) {
        return 2;
    }
    static constexpr std::array<std::string_view, 6> kThreeByteSpaces{
        "\xE1\x9A\x80", "\xE2\x80\xAF", "\xE2\x81\x9F",
        "\xE3\x80\x80", "\xE2\x80\xA8", "\xE2\x80\xA9"};
    for (const auto space : kThreeByteSpaces) {
        if (rest.starts_with(space)) {
            return 3;
        }
    }
    // U+2000 … U+200A.
    if (rest.size() >= 3 && rest[0] == '\xE2' && rest[1] == '\x80' &&
        static_cast<unsigned char>(rest[2]) >= 0x80 &&
        static_cast<unsigned char>(rest[2]) <= 0x8A) {
        return 3;
    }
    return 0;
}

bool endsTheAddress(std::string_view text, std::size_t at) {
    return text[at] == '"' || text[at] == '\'' || whitespaceLengthAt(text, at) != 0;
}

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

// The end of "//(127.0.0.1|localhost):\d+/auth?" after the scheme at `at`, or npos.
std::size_t endOfAddressPrefix(std::string_view text, std::size_t at) {
    if (!text.substr(at).starts_with("://")) {
        return std::string_view::npos;
    }
    at += 3;
    bool hostFound = false;
    for (const std::string_view host : {"127.0.0.1", "localhost"}) {
        if (text.substr(at).starts_with(host)) {
            at += host.size();
            hostFound = true;
            break;
        }
    }
    if (!hostFound || at >= text.size() || text[at] != ':') {
        return std::string_view::npos;
    }
    ++at;
    const std::size_t digitsStart = at;
    while (at < text.size() && isDigit(text[at])) {
        ++at;
    }
    if (at == digitsStart || !text.substr(at).starts_with("/auth?")) {
        return std::string_view::npos;
    }
    return at + 6;
}

} // namespace

OAuthContinueOutputSink::OAuthContinueOutputSink(OAuthURLCallback onOAuthURL)
    : onOAuthURL_(std::move(onOAuthURL)) {}

void OAuthContinueOutputSink::appendStandardError(std::string_view chunk) {
    errBuffer_.append(chunk);
    lookForURL(false);
}

void OAuthContinueOutputSink::finish() {
    lookForURL(true);
}

void OAuthContinueOutputSink::lookForURL(bool streamEnded) {
    if (authURLSent_) {
        return;
    }
    if (const auto url = findAuthorizationURL(errBuffer_, streamEnded)) {
        authURLSent_ = true;
        if (onOAuthURL_) {
            onOAuthURL_(std::string(*url));
        }
    }
}

std::optional<std::string_view> OAuthContinueOutputSink::findAuthorizationURL(std::string_view text,
                                                                              bool streamEnded) {
    for (std::size_t start = text.find("http"); start != std::string_view::npos;
         start = text.find("http", start + 1)) {
        std::size_t at = start + 4;
        if (at < text.size() && text[at] == 's') {
            ++at;
        }
        const std::size_t queryStart = endOfAddressPrefix(text, at);
        if (queryStart == std::string_view::npos) {
            continue;
        }
        std::size_t end = queryStart;
        while (end < text.size() && !endsTheAddress(text, end)) {
            ++end;
        }
        if (end == queryStart) {
            continue; // an empty query is no match here
        }
        if (end == text.size() && !streamEnded) {
            return std::nullopt; // more of it may still come
        }
        return text.substr(start, end - start);
    }
    return std::nullopt;
}

} // namespace brimvale
