#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace brimvale {

// Called with the local authorisation address rclone serves during sign-in
// ("http://127.0.0.1:53682/auth?state=…").
using OAuthURLCallback = std::function<void(const std::string& url)>;

// Watches the standard error of an OAuth step for rclone's local authorisation address and
// hands it to the callback exactly once. An address is taken only once it is complete: followed
// by a character that cannot be part of it, or at the end of the stream, so an address split
// between two reads is never cut short.
//
// Thread safety: one thread at a time (the step's collecting thread); the callback runs there.
class OAuthContinueOutputSink {
public:
    explicit OAuthContinueOutputSink(OAuthURLCallback onOAuthURL);

    void appendStandardError(std::string_view chunk);
    // The stream ended: an address that reaches the very end counts now.
    void finish();

    bool authURLSent() const { return authURLSent_; }
    // Standard error so far, as the bytes arrived.
    const std::string& errBuffer() const { return errBuffer_; }

    // The first match of https?://(?:127\.0\.0\.1|localhost):\d+/auth\?[^\s"']+ in `text`.
    // When `streamEnded` is false, a match that runs to the end of `text` may still grow and is
    // not returned; nor is any later one.
    static std::optional<std::string_view> findAuthorizationURL(std::string_view text,
                                                                bool streamEnded);

private:
    void lookForURL(bool streamEnded);

    OAuthURLCallback onOAuthURL_;
    std::string errBuffer_;
    bool authURLSent_ = false;
};

} // namespace brimvale
