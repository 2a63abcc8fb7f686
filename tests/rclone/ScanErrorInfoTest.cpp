#include "core/rclone/ScanErrorInfo.h"

#include "core/rclone/BrimvaleError.h"
#include "core/rclone/GenericRcloneAdapter.h"
#include "core/support/Task.h"

#include <gtest/gtest.h>

#include <system_error>

namespace brimvale {
namespace {

// A provider that is not an rclone remote: the local disk.
class LocalDiskStandIn final : public CloudStorageProvider {
public:
    std::string remoteID() const override { return "local"; }
    std::string displayName() const override { return "This computer"; }
    std::string rcloneType() const override { return "local"; }
    bool isConfigured(std::stop_token) override { return true; }
    std::vector<FileNodeRef> listDirectory(const std::string&, std::stop_token) override {
        return {};
    }
    FileNodeRef scan(const ScanParameters&) override { return nullptr; }
    std::optional<std::string> webURL(const FileNode&) const override { return std::nullopt; }
    std::optional<std::int64_t> totalOccupiedBytesForScanPath(const std::string&,
                                                              std::stop_token) override {
        return std::nullopt;
    }
};

const GenericRcloneAdapter& cloud() {
    static const GenericRcloneAdapter adapter("gd", "drive", "Drive");
    return adapter;
}

ScanErrorInfo cloudFailure(const std::string& detail) {
    return ScanErrorInfo::from(BrimvaleError::scanFailed("Drive", detail), cloud());
}

TEST(BrimvaleError, DescriptionsOfEveryCase) {
    EXPECT_EQ(BrimvaleError::remoteNotConfigured("gd").description(),
              "Account \"gd\" is not set up yet.");
    EXPECT_EQ(BrimvaleError::scanFailed("gd", "boom").description(), "Could not read \"gd\": boom");
    EXPECT_EQ(BrimvaleError::parseError("bad").description(),
              "Could not read cloud listing data: bad");
    EXPECT_EQ(std::string(BrimvaleError::rcloneNotInstalled().what()),
              "The cloud sync tool is not installed. Install it (for example: sudo apt install "
              "rclone) and try again.");
}

TEST(ScanErrorInfo, ClassifiesScanFailures) {
    // Log prefix, "Failed to create file system for" and "couldn't fetch token": sign-in.
    EXPECT_EQ(cloudFailure("2024/05/01 10:00:00 ERROR : Failed to create file system for "
                           "\"gd:\": couldn't fetch token: unauthorized"),
              (ScanErrorInfo{"Sign-in for this account is missing or expired. Reconnect to keep "
                             "using it.",
                             true}));
    // Nothing recognised: compacted, no reconnect.
    EXPECT_EQ(
        cloudFailure("2024/05/01 10:00:00 NOTICE: Failed to create file system for "
                     "\"gd:x\": directory not found\n"),
        (ScanErrorInfo{"Could not read \"Drive\": Could not open \"gd:x\": directory not found",
                       false}));
    // A missing backend wins over the scope rules and cannot be cured by signing in.
    const auto backend = cloudFailure("could not find backend \"x\"; PERMISSION_DENIED scope");
    EXPECT_TRUE(backend.message.starts_with("That storage type isn\u2019t built into"));
    EXPECT_FALSE(backend.canReconnect);
    const auto region = cloudFailure("s3: no region set");
    EXPECT_TRUE(region.message.starts_with("This remote needs a region"));
    EXPECT_TRUE(region.canReconnect);
    const auto project =
        cloudFailure("googleapi: Error 400: Project number is required to list buckets");
    EXPECT_TRUE(
        project.message.starts_with("This Google Cloud Storage remote needs project/bucket"));
    EXPECT_TRUE(project.canReconnect);
    const auto scopes = cloudFailure("Error 403: Request had insufficient authentication scopes.");
    EXPECT_TRUE(scopes.message.starts_with("This account was refused because your Google Cloud"));
    EXPECT_TRUE(scopes.canReconnect);
    // "rclone" never reaches the user; double spaces are halved in one pass.
    EXPECT_EQ(cloudFailure("RClone  says  no").message, "Could not read \"Drive\":  says no");

    // A 5000-character text: 1197 characters and the ellipsis.
    const auto longMessage = cloudFailure(std::string(5000, 'z')).message;
    EXPECT_EQ(longMessage.size(), 1197 + std::string("\u2026").size());
    EXPECT_TRUE(longMessage.ends_with("zz\u2026"));

    // The other cases.
    EXPECT_EQ(ScanErrorInfo::from(BrimvaleError::rcloneNotInstalled(), cloud()),
              (ScanErrorInfo{"The program that connects to your cloud accounts was not found on "
                             "this computer.",
                             false}));
    EXPECT_EQ(ScanErrorInfo::from(BrimvaleError::remoteNotConfigured("gd"), cloud()),
              (ScanErrorInfo{"Account \"gd\" is not set up yet.", false}));
    EXPECT_EQ(ScanErrorInfo::from(BrimvaleError::parseError("x"), cloud()).message,
              "Could not read cloud listing data: x");
    const std::system_error launch(std::make_error_code(std::errc::permission_denied),
                                   "could not start /usr/bin/rclone");
    EXPECT_EQ(ScanErrorInfo::from(launch, cloud()).message,
              "could not start /usr/bin/: Permission denied");
    EXPECT_EQ(ScanErrorInfo::from(std::make_exception_ptr(42), cloud()).message,
              "Something went wrong while reading this account.");

    // The local disk: access errors point at permissions, never offer reconnecting.
    LocalDiskStandIn local;
    const auto denied = ScanErrorInfo::from(
        BrimvaleError::scanFailed("This computer", "open /root: Operation not permitted"), local);
    EXPECT_EQ(denied.message,
              "Could not read that folder on your computer (Could not read \"This computer\": "
              "open /root: Operation not permitted). For system volumes or other disks, give "
              "your user account read permission for those folders, or scan them as a user who "
              "has it.");
    EXPECT_FALSE(denied.canReconnect);
    EXPECT_FALSE(
        ScanErrorInfo::from(BrimvaleError::scanFailed("x", "no region set"), local).canReconnect);
    EXPECT_FALSE(
        ScanErrorInfo::from(BrimvaleError::scanFailed("x", "unauthorized"), local).canReconnect);
}

TEST(ScanErrorInfo, StripsUsageDumps) {
    EXPECT_EQ(ScanErrorInfo::stripCLIUsageDump("Error: unknown flag: --bogus\nFatal error: unknown "
                                               "flag: --bogus\nUsage:\n  lsjson remote:path "
                                               "[flags]\nFlags:\n  -h, --help"),
              "Fatal error: unknown flag: --bogus");
    EXPECT_EQ(ScanErrorInfo::stripCLIUsageDump("bad thing\nUse \"x lsjson\" --help for more\nmore"),
              "bad thing");
    EXPECT_EQ(ScanErrorInfo::stripCLIUsageDump("one\nUse \" help topics\" to see\ntwo"),
              "one\n\ntwo");
    // A fatal-error line that is not the last line, or 280 characters long, is not taken.
    EXPECT_EQ(ScanErrorInfo::stripCLIUsageDump("Fatal error: a\nthen b"), "Fatal error: a\nthen b");
    const std::string longLine = "x\nFatal error: " + std::string(267, 'y');
    EXPECT_EQ(ScanErrorInfo::stripCLIUsageDump(longLine), longLine);
    EXPECT_EQ(ScanErrorInfo::stripCLIUsageDump(longLine.substr(0, longLine.size() - 1)),
              longLine.substr(2, longLine.size() - 3));
    EXPECT_EQ(ScanErrorInfo::stripCLIUsageDump("x FATAL ERROR:\n\n  last  "),
              "FATAL ERROR:\n\n  last");

    EXPECT_EQ(ScanErrorInfo::compactUserMessage("  \n"),
              "Something went wrong while reading this account.");
    EXPECT_EQ(ScanErrorInfo::compactUserMessage("x 12024/05/01  10:00:00\tDEBUG:  y"), "x 1y");
    EXPECT_EQ(ScanErrorInfo::compactUserMessage("2024/05/01 10:00:00 no level"),
              "2024/05/01 10:00:00 no level");
    const std::string exactly1200(1200, 'a');
    EXPECT_EQ(ScanErrorInfo::compactUserMessage(exactly1200), exactly1200);
    // Characters, not bytes, are counted.
    std::string wide;
    for (int i = 0; i < 1201; ++i) {
        wide += "\xC3\xA9";
    }
    EXPECT_EQ(ScanErrorInfo::compactUserMessage(wide).size(), 1197 * 2 + 3);

    EXPECT_TRUE(ScanErrorInfo::looksLikeAuthOrTokenIssue("HTTP 401"));
    EXPECT_TRUE(ScanErrorInfo::looksLikeAuthOrTokenIssue("403 Forbidden"));
    EXPECT_FALSE(ScanErrorInfo::looksLikeAuthOrTokenIssue("403 quota"));
    EXPECT_TRUE(ScanErrorInfo::looksLikeAuthOrTokenIssue("Failed to read line: EOF"));
    EXPECT_TRUE(ScanErrorInfo::looksLikeAuthOrTokenIssue("please reconnect: oauth"));
    EXPECT_FALSE(ScanErrorInfo::looksLikeAuthOrTokenIssue("please reconnect"));
    EXPECT_TRUE(ScanErrorInfo::looksLikeLocalFileAccessDenied("The file couldn't be opened"));
    EXPECT_FALSE(ScanErrorInfo::looksLikeReconnectableSetupIssue("project number missing"));
}

TEST(ScanErrorInfo, AddAccountFlowMessages) {
    const auto message = [](const std::exception& error) {
        return ScanErrorInfo::addAccountFlowMessage(error);
    };
    EXPECT_EQ(message(BrimvaleError::rcloneNotInstalled()),
              "The helper program used to reach your clouds was not found on this computer.");
    EXPECT_EQ(message(BrimvaleError::remoteNotConfigured("rclone  x")),
              "Account \" x\" is not set up yet.");
    EXPECT_TRUE(message(BrimvaleError::scanFailed("a", "oauth2: No code returned"))
                    .starts_with("The provider did not confirm access\u2014usually"));
    EXPECT_TRUE(message(BrimvaleError::scanFailed("a", "Auth Error: refresh failed"))
                    .starts_with("Sign-in with the cloud provider did not complete."));
    EXPECT_TRUE(message(BrimvaleError::scanFailed("a", "failed to read line: EOF"))
                    .starts_with("The sign-in helper stopped unexpectedly."));
    EXPECT_EQ(message(BrimvaleError::scanFailed("a", "bad value\nFlags:\n -x")),
              "Could not read \"a\": bad value");
    const std::string capped = message(BrimvaleError::scanFailed("a", std::string(400, 'q')));
    EXPECT_EQ(capped, "Could not read \"a\": " + std::string(257 - 20, 'q') + "\u2026");
    EXPECT_EQ(message(CancellationError()), "The operation was cancelled.");
    EXPECT_EQ(message(std::runtime_error(" rclone ")),
              "Something went wrong while connecting this account.");
}

} // namespace
} // namespace brimvale
