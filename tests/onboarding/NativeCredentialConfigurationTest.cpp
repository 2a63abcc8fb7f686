#include "core/onboarding/NativeCredentialConfiguration.h"

#include "core/onboarding/CloudServiceCatalog.h"
#include "core/rclone/GCSScanSettings.h"
#include "core/rclone/GenericRcloneAdapter.h"
#include "core/rclone/ObjectStorageScanPrefix.h"
#include "core/rclone/RcloneProcessLog.h"
#include "core/support/InMemorySettingsStore.h"
#include "tests/onboarding/OnboardingTestSupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <mutex>

namespace brimvale {
namespace {

namespace Forms = NativeCredentialConfiguration;
using testing::failureOf;
using testing::RcloneSandbox;

// Collects the runner's log lines (the command lines, secrets masked) while alive.
class CapturedCommandLines {
public:
    CapturedCommandLines() {
        previous_ = RcloneProcessLog::setWriter([this](std::string_view line) {
            constexpr std::string_view prefix = "rclone spawn args=";
            if (line.starts_with(prefix)) {
                std::lock_guard lock(mutex_);
                lines_.emplace_back(line.substr(prefix.size()));
            }
        });
    }
    ~CapturedCommandLines() { RcloneProcessLog::setWriter(previous_); }
    // The `config update` lines, without the config dump and create runs around them.
    std::vector<std::string> updates() {
        std::lock_guard lock(mutex_);
        std::vector<std::string> result;
        std::ranges::copy_if(lines_, std::back_inserter(result), [](const std::string& line) {
            return line.starts_with("config update") && !line.ends_with("--non-interactive");
        });
        lines_.clear();
        return result;
    }

private:
    RcloneProcessLog::Writer previous_;
    std::mutex mutex_; // guards lines_
    std::vector<std::string> lines_;
};

GenericRcloneAdapter configurationAdapter(const RcloneRunner& runner) {
    return GenericRcloneAdapter("", "", "configuration", {.runner = runner});
}

TEST(NativeCredentialConfiguration, EveryFormWritesItsKeysAndScanRoot) {
    RcloneSandbox sandbox;
    const auto adapter = configurationAdapter(sandbox.realRunner());
    InMemorySettingsStore settings;
    CapturedCommandLines commands;
    const auto keyFile = sandbox.folder() / "key.json";
    testing::writeFile(keyFile, R"({"type":"service_account"})");

    Forms::applyS3AwsConfiguration(adapter, "aws",
                                   {.region = " eu-west-1\n",
                                    .accessKeyId = "AKID",
                                    .secretAccessKey = "s3cret",
                                    .bucket = " photos "},
                                   settings);
    EXPECT_EQ(commands.updates(),
              (std::vector<std::string>{"config update aws provider AWS",
                                        "config update aws region eu-west-1",
                                        "config update aws access_key_id AKID",
                                        "config update aws secret_access_key *** --obscure"}));
    Forms::applyS3CloudflareR2Configuration(
        adapter, "r2",
        {.accountId = "abc123", .accessKeyId = "R2ID", .secretAccessKey = "r2s", .bucket = "b"},
        settings);
    Forms::applyGCSConfiguration(
        adapter, "gcs1", {.bucket = "gb", .projectNumber = "42", .keyFilePath = keyFile.string()},
        settings);
    EXPECT_EQ(commands.updates().back(), "config update gcs1 project_number 42");
    Forms::applyGCSConfiguration(
        adapter, "gcs2", {.bucket = "gb2", .serviceAccountJSON = "\n{\"k\": 1}\n"}, settings);
    EXPECT_EQ(
        commands.updates(),
        std::vector<std::string>{"config update gcs2 service_account_credentials *** --obscure"});
    Forms::applyAzureBlobAccountKeyConfiguration(
        adapter, "az", {.account = "acct", .storageKey = "azkey==", .container = "c1"}, settings);
    Forms::applyFTPConfiguration(
        adapter, "ftp1", {.host = "ftp.example.com", .port = "0", .user = "u", .password = "pw"});
    Forms::applyFTPConfiguration(adapter, "ftp2", {.host = "h", .port = " 2121 ", .user = "u"});
    Forms::applySFTPConfiguration(adapter, "sftp1",
                                  {.host = "h",
                                   .port = "22x",
                                   .user = "u",
                                   .password = "pw2",
                                   .keyFilePath = keyFile.string()});

    const auto dump = testing::configDump(sandbox);
    EXPECT_EQ(dump.at("aws"), (RemoteConfigSection{{"type", "s3"},
                                                   {"provider", "AWS"},
                                                   {"region", "eu-west-1"},
                                                   {"access_key_id", "AKID"},
                                                   {"secret_access_key", "s3cret"}}));
    EXPECT_EQ(dump.at("r2"),
              (RemoteConfigSection{{"type", "s3"},
                                   {"provider", "Cloudflare"},
                                   {"endpoint", "https://abc123.r2.cloudflarestorage.com"},
                                   {"region", "auto"},
                                   {"access_key_id", "R2ID"},
                                   {"secret_access_key", "r2s"}}));
    EXPECT_EQ(dump.at("gcs1"), (RemoteConfigSection{{"type", "gcs"},
                                                    {"service_account_file", keyFile.string()},
                                                    {"service_account_credentials", ""},
                                                    {"project_number", "42"}}));
    EXPECT_EQ(
        dump.at("gcs2"),
        (RemoteConfigSection{{"type", "gcs"}, {"service_account_credentials", "{\"k\": 1}"}}));
    EXPECT_EQ(dump.at("az"), (RemoteConfigSection{
                                 {"type", "azureblob"}, {"account", "acct"}, {"key", "azkey=="}}));
    // Passwords are stored obscured and reveal back to what was typed; a port of 0 or one that
    // is not a number leaves rclone's default.
    EXPECT_EQ(dump.at("ftp1").size(), 4u);
    EXPECT_EQ(dump.at("ftp1").at("host"), "ftp.example.com");
    EXPECT_NE(dump.at("ftp1").at("pass"), "pw");
    EXPECT_EQ(testing::revealed(sandbox, dump.at("ftp1").at("pass")), "pw");
    EXPECT_EQ(
        dump.at("ftp2"),
        (RemoteConfigSection{{"type", "ftp"}, {"host", "h"}, {"user", "u"}, {"port", "2121"}}));
    EXPECT_EQ(dump.at("sftp1").at("key_file"), keyFile.string());
    EXPECT_FALSE(dump.at("sftp1").contains("port"));
    EXPECT_EQ(testing::revealed(sandbox, dump.at("sftp1").at("pass")), "pw2");
    // Keys in order; every secret is passed with "--obscure", also those rclone keeps in plain
    // text (it obscures only its password options).
    EXPECT_EQ(commands.updates(),
              (std::vector<std::string>{
                  "config update az account acct", "config update az key *** --obscure",
                  "config update ftp1 host ftp.example.com", "config update ftp1 user u",
                  "config update ftp1 pass *** --obscure", "config update ftp2 host h",
                  "config update ftp2 user u", "config update ftp2 port 2121",
                  "config update sftp1 host h", "config update sftp1 user u",
                  "config update sftp1 key_file " + keyFile.string(),
                  "config update sftp1 pass *** --obscure"}));

    EXPECT_EQ(ObjectStorageScanPrefix::storedS3Bucket(settings, "aws"), "photos");
    EXPECT_EQ(ObjectStorageScanPrefix::storedS3Bucket(settings, "r2"), "b");
    EXPECT_EQ(GCSScanSettings::storedBucket(settings, "gcs1"), "gb");
    EXPECT_EQ(GCSScanSettings::storedBucket(settings, "gcs2"), "gb2");
    EXPECT_EQ(ObjectStorageScanPrefix::storedAzureContainer(settings, "az"), "c1");
    // An existing R2 remote is told from AWS by its provider key.
    EXPECT_EQ(CloudServiceCatalog::nativeOnboardingKindForRemote("r2", "s3", dump),
              NativeCredentialOnboardingKind::s3(S3CatalogVariant::cloudflareR2));

    // Switching a GCS account from pasted JSON to a key file clears the pasted key; a remote of
    // another type is retyped first.
    Forms::applyGCSConfiguration(adapter, "gcs2",
                                 {.bucket = "gb2", .keyFilePath = keyFile.string()}, settings);
    Forms::applyFTPConfiguration(adapter, "az", {.host = "h", .user = "u"});
    const auto after = testing::configDump(sandbox);
    EXPECT_EQ(after.at("gcs2").at("service_account_credentials"), "");
    EXPECT_EQ(after.at("az").at("type"), "ftp");
}

TEST(NativeCredentialConfiguration, ValidationRefusesBeforeRcloneRuns) {
    RcloneSandbox sandbox;
    const auto ranMarker = sandbox.folder() / "rclone-ran";
    const auto adapter =
        configurationAdapter(sandbox.fakeRunner("touch '" + ranMarker.string() + "'; exit 1"));
    InMemorySettingsStore settings;
    const auto existing = sandbox.folder() / "id_ed25519";
    testing::writeFile(existing, "key");

    struct Case {
        std::function<void()> apply;
        std::string message;
    };
    const std::vector<Case> cases{
        {[&] {
             Forms::applyS3AwsConfiguration(
                 adapter, "x",
                 {.region = "  ", .accessKeyId = "a", .secretAccessKey = "s", .bucket = "b"},
                 settings);
         },
         "Enter an AWS region (e.g. us-east-1)."},
        {[&] {
             Forms::applyS3AwsConfiguration(
                 adapter, "x",
                 {.region = "r", .accessKeyId = "a", .secretAccessKey = "\n", .bucket = ""},
                 settings);
         },
         "Enter access key ID and secret access key."},
        {[&] {
             Forms::applyS3AwsConfiguration(
                 adapter, "x",
                 {.region = "r", .accessKeyId = "a", .secretAccessKey = "s", .bucket = " "},
                 settings);
         },
         "Enter a bucket name."},
        {[&] {
             Forms::applyS3CloudflareR2Configuration(
                 adapter, "x",
                 {.accountId = "", .accessKeyId = "", .secretAccessKey = "", .bucket = ""},
                 settings);
         },
         "Enter your Cloudflare account ID."},
        {[&] {
             Forms::applyS3CloudflareR2Configuration(
                 adapter, "x",
                 {.accountId = "i", .accessKeyId = " ", .secretAccessKey = "s", .bucket = "b"},
                 settings);
         },
         "Enter the R2 access key ID and secret."},
        {[&] {
             Forms::applyS3CloudflareR2Configuration(
                 adapter, "x", {.accountId = "i", .accessKeyId = "a", .secretAccessKey = "s"},
                 settings);
         },
         "Enter a bucket name."},
        {[&] {
             Forms::applyGCSConfiguration(adapter, "x",
                                          {.bucket = "", .keyFilePath = "/nonexistent"}, settings);
         },
         "Enter a bucket name."},
        {[&] {
             Forms::applyGCSConfiguration(
                 adapter, "x", {.bucket = "b", .keyFilePath = "/k", .serviceAccountJSON = "{}"},
                 settings);
         },
         "Use either a key file or pasted JSON\u2014not both."},
        {[&] {
             Forms::applyGCSConfiguration(adapter, "x",
                                          {.bucket = "b",
                                           .projectNumber = "1",
                                           .keyFilePath = " ",
                                           .serviceAccountJSON = "\t"},
                                          settings);
         },
         "Choose a service account JSON key file, or paste the JSON."},
        {[&] {
             Forms::applyAzureBlobAccountKeyConfiguration(
                 adapter, "x", {.account = "a", .storageKey = "", .container = ""}, settings);
         },
         "Enter storage account name and key."},
        {[&] {
             Forms::applyAzureBlobAccountKeyConfiguration(
                 adapter, "x", {.account = "a", .storageKey = "k", .container = "\n"}, settings);
         },
         "Enter a container name."},
        {[&] {
             Forms::applyFTPConfiguration(
                 adapter, "x", {.host = "h", .port = "21", .user = " ", .password = "p"});
         },
         "Enter host and username."},
        {[&] {
             Forms::applySFTPConfiguration(adapter, "x",
                                           {.host = "", .user = "u", .password = "p"});
         },
         "Enter host and username."},
        {[&] {
             Forms::applySFTPConfiguration(adapter, "x",
                                           {.host = "h", .user = "u", .password = " "});
         },
         "Enter a password or choose an SSH private key file."},
        {[&] {
             Forms::applySFTPConfiguration(
                 adapter, "x",
                 {.host = "h",
                  .user = "u",
                  .password = "p",
                  .keyFilePath = (sandbox.folder() / "missing").string()});
         },
         "SSH key file not found."},
        {[&] {
             Forms::applySFTPConfiguration(
                 adapter, "x",
                 {.host = "h", .user = "u", .keyFilePath = sandbox.folder().path().string()});
         },
         "SSH key file not found."},
    };
    for (std::size_t index = 0; index < cases.size(); ++index) {
        const auto failure = failureOf(cases[index].apply);
        ASSERT_TRUE(failure) << "case " << index;
        try {
            std::rethrow_exception(failure);
        } catch (const CredentialFormValidationError& error) {
            EXPECT_EQ(error.message(), cases[index].message) << "case " << index;
            EXPECT_EQ(*error.as<BrimvaleError::ScanFailed>(),
                      (BrimvaleError::ScanFailed{"x", cases[index].message}));
        } catch (const std::exception& other) {
            ADD_FAILURE() << "case " << index << ": " << other.what();
        }
    }
    EXPECT_FALSE(std::filesystem::exists(ranMarker));
    EXPECT_TRUE(settings.keys().empty());

    // A failing rclone run is rclone's error, not a validation error, and stores no scan root.
    const auto failure = failureOf([&] {
        Forms::applyS3AwsConfiguration(
            adapter, "x",
            {.region = "r", .accessKeyId = "a", .secretAccessKey = "s", .bucket = "b"}, settings);
    });
    const auto error = testing::brimvaleErrorOf(failure);
    EXPECT_TRUE(error.is<BrimvaleError::ScanFailed>());
    EXPECT_EQ(error.as<BrimvaleError::ScanFailed>()->detail, "exit 1");
    EXPECT_TRUE(std::filesystem::exists(ranMarker));
    EXPECT_TRUE(settings.keys().empty());
}

TEST(NativeCredentialConfiguration, MissingGCSKeyFileIsFoundAfterTheStubAndTildeIsHome) {
    RcloneSandbox sandbox;
    const auto adapter = configurationAdapter(sandbox.realRunner());
    InMemorySettingsStore settings;
    const auto failure = failureOf([&] {
        Forms::applyGCSConfiguration(
            adapter, "g", {.bucket = "b", .keyFilePath = "/nonexistent/key.json"}, settings);
    });
    EXPECT_EQ(testing::scanFailedDetailOf(failure), "Key file not found at path.");
    const auto dump = testing::configDump(sandbox);
    EXPECT_EQ(dump.at("g"), (RemoteConfigSection{{"type", "gcs"}}));
    EXPECT_FALSE(GCSScanSettings::storedBucket(settings, "g").has_value());

    // "~" stands for the home folder, before the existence test and in the stored path.
    const char* savedHome = std::getenv("HOME");
    const std::string previousHome = savedHome != nullptr ? savedHome : "";
    ::setenv("HOME", sandbox.folder().path().c_str(), 1);
    testing::writeFile(sandbox.folder() / ".ssh" / "id_ed25519", "key");
    EXPECT_EQ(Forms::expandingTildeInPath("~"), sandbox.folder().path().string());
    EXPECT_EQ(Forms::expandingTildeInPath("~/.ssh/id"), (sandbox.folder() / ".ssh/id").string());
    EXPECT_EQ(Forms::expandingTildeInPath("/a/~/b"), "/a/~/b");
    EXPECT_EQ(Forms::expandingTildeInPath("~root/x"), "/root/x");
    EXPECT_EQ(Forms::expandingTildeInPath("~no-such-user-here/x"), "~no-such-user-here/x");
    Forms::applySFTPConfiguration(adapter, "s",
                                  {.host = "h", .user = "u", .keyFilePath = " ~/.ssh/id_ed25519 "});
    if (savedHome != nullptr) {
        ::setenv("HOME", previousHome.c_str(), 1);
    } else {
        ::unsetenv("HOME");
    }
    EXPECT_EQ(testing::configDump(sandbox).at("s").at("key_file"),
              (sandbox.folder() / ".ssh" / "id_ed25519").string());
}

TEST(NativeCredentialConfiguration, AnSftpAccountFromTheFormCanBeListed) {
    RcloneSandbox sandbox;
    testing::writeFileOfSize(sandbox.folder() / "served" / "docs" / "a.txt", 1234);
    testing::writeFileOfSize(sandbox.folder() / "served" / "b.bin", 10);
    const auto server = testing::startSftpServer(sandbox, sandbox.folder() / "served");
    const auto adapter = configurationAdapter(sandbox.realRunner());
    Forms::applySFTPConfiguration(
        adapter, "files",
        {.host = "127.0.0.1", .port = std::to_string(server.port), .user = "u", .password = "p"});
    const GenericRcloneAdapter files("files", "sftp", "SFTP (files)",
                                     {.runner = sandbox.realRunner()});
    auto entries = files.listEntries("files:", {});
    std::ranges::sort(entries, {}, &RcloneEntry::name);
    ASSERT_EQ(entries.size(), 2u);
    EXPECT_EQ(entries[0].name, "b.bin");
    EXPECT_EQ(entries[0].rawSize, 10);
    EXPECT_EQ(entries[1].name, "docs");
    EXPECT_TRUE(entries[1].isDir);
    const auto inside = files.listEntries("files:docs", {});
    ASSERT_EQ(inside.size(), 1u);
    EXPECT_EQ(inside[0].rawSize, 1234);

    // A wrong password is the server's refusal, reported by the listing.
    Forms::applySFTPConfiguration(adapter, "files",
                                  {.host = "127.0.0.1",
                                   .port = std::to_string(server.port),
                                   .user = "u",
                                   .password = "wrong"});
    EXPECT_TRUE(testing::brimvaleErrorOf(failureOf([&] {
                    files.listEntries("files:", {});
                })).is<BrimvaleError::ScanFailed>());
}

} // namespace
} // namespace brimvale
