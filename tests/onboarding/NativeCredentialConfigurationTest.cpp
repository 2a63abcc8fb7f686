#include "core/onboarding/NativeCredentialConfiguration.h"

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

GenericRcloneAdapter configurationAdapter(const RcloneRunner& runner) {
    return GenericRcloneAdapter("", "", "configuration", {.runner = runner});
}

TEST(NativeCredentialConfiguration, EveryFormWritesItsKeysInOrder) {
    testing::RcloneSandbox sandbox;
    const auto adapter = configurationAdapter(sandbox.realRunner());
    InMemorySettingsStore settings;
    const auto keyFile = (sandbox.folder() / "key.json").string();
    testing::writeFile(keyFile, "{}");
    std::mutex mutex; // guards logged (log writers may be called from any thread)
    std::vector<std::string> logged;
    const auto previous = RcloneProcessLog::setWriter([&](std::string_view line) {
        std::lock_guard lock(mutex);
        logged.emplace_back(line);
    });

    Forms::applyS3AwsConfiguration(
        adapter, "aws",
        {.region = " eu-west-1\n", .accessKeyId = "AK", .secretAccessKey = "s1", .bucket = " p "},
        settings);
    Forms::applyS3CloudflareR2Configuration(
        adapter, "r2",
        {.accountId = "abc", .accessKeyId = "RK", .secretAccessKey = "s2", .bucket = "b"},
        settings);
    Forms::applyGCSConfiguration(
        adapter, "g1", {.bucket = "gb", .projectNumber = "42", .keyFilePath = keyFile}, settings);
    Forms::applyGCSConfiguration(adapter, "g2",
                                 {.bucket = "gb2", .serviceAccountJSON = "\n{\"k\": 1}"}, settings);
    Forms::applyAzureBlobAccountKeyConfiguration(
        adapter, "az", {.account = "acct", .storageKey = "k==", .container = "c"}, settings);
    Forms::applyFTPConfiguration(adapter, "f1",
                                 {.host = "h", .port = "0", .user = "-u", .password = "-pw"});
    Forms::applyFTPConfiguration(adapter, "f2", {.host = "h", .port = " 2121 ", .user = "u"});
    Forms::applySFTPConfiguration(
        adapter, "s",
        {.host = "h", .port = "22x", .user = "u", .password = "pw2", .keyFilePath = keyFile});
    RcloneProcessLog::setWriter(previous);

    // Each form is one request to rclone's remote control; no value is on a command line, so
    // none is in the log either.
    const auto calls = std::ranges::count_if(logged, [](const std::string& line) {
        return line == "rclone remote control call config/create";
    });
    EXPECT_EQ(calls, 8);
    for (const auto& line : logged) {
        for (const std::string secret : {"s1", "s2", "k==", "-pw", "pw2", "\"k\""}) {
            EXPECT_EQ(line.find(secret), std::string::npos) << line;
        }
    }
    auto dump = testing::configDump(sandbox);
    EXPECT_EQ(dump.at("aws"), (RemoteConfigSection{{"type", "s3"},
                                                   {"provider", "AWS"},
                                                   {"region", "eu-west-1"},
                                                   {"access_key_id", "AK"},
                                                   {"secret_access_key", "s1"}}));
    EXPECT_EQ(dump.at("r2"),
              (RemoteConfigSection{{"type", "s3"},
                                   {"provider", "Cloudflare"},
                                   {"endpoint", "https://abc.r2.cloudflarestorage.com"},
                                   {"region", "auto"},
                                   {"access_key_id", "RK"},
                                   {"secret_access_key", "s2"}}));
    EXPECT_EQ(dump.at("g1").at("service_account_file"), keyFile);
    EXPECT_EQ(dump.at("g1").at("project_number"), "42");
    EXPECT_EQ(dump.at("f2").at("port"), "2121");
    EXPECT_EQ(dump.at("s").at("key_file"), keyFile);
    EXPECT_FALSE(dump.at("s").contains("port"));
    EXPECT_EQ(dump.at("g1").at("service_account_credentials"), "");
    EXPECT_EQ(dump.at("g2"), (RemoteConfigSection{{"type", "gcs"},
                                                  {"service_account_credentials", "{\"k\": 1}"}}));
    EXPECT_EQ(dump.at("az").at("type"), "azureblob");
    // Values that begin with "-" are values, not flags.
    EXPECT_EQ(testing::revealed(sandbox, dump.at("f1").at("pass")), "-pw");
    EXPECT_EQ(dump.at("f1").at("user"), "-u");
    EXPECT_EQ(testing::revealed(sandbox, dump.at("s").at("pass")), "pw2");
    EXPECT_FALSE(dump.at("f1").contains("port"));

    EXPECT_EQ(ObjectStorageScanPrefix::storedS3Bucket(settings, "aws"), "p");
    EXPECT_EQ(ObjectStorageScanPrefix::storedS3Bucket(settings, "r2"), "b");
    EXPECT_EQ(GCSScanSettings::storedBucket(settings, "g2"), "gb2");
    EXPECT_EQ(ObjectStorageScanPrefix::storedAzureContainer(settings, "az"), "c");
    // A remote of another type is retyped before its keys are written.
    Forms::applyFTPConfiguration(adapter, "az", {.host = "h", .user = "u"});
    EXPECT_EQ(testing::configDump(sandbox).at("az").at("type"), "ftp");
}

TEST(NativeCredentialConfiguration, ValidationComesFirstInItsOrder) {
    testing::RcloneSandbox sandbox;
    const auto ran = sandbox.folder() / "ran";
    const auto adapter =
        configurationAdapter(sandbox.fakeRunner("touch '" + ran.string() + "'; exit 1"));
    InMemorySettingsStore store;
    const std::string missing = (sandbox.folder() / "missing").string();
    const auto s3 = [&](S3AwsCredentialFields fields) {
        return [&, fields] {
            Forms::applyS3AwsConfiguration(adapter, "x", fields, store);
        };
    };
    const auto r2 = [&](CloudflareR2CredentialFields fields) {
        return [&, fields] {
            Forms::applyS3CloudflareR2Configuration(adapter, "x", fields, store);
        };
    };
    const auto gcs = [&](GCSCredentialFields fields) {
        return [&, fields] {
            Forms::applyGCSConfiguration(adapter, "x", fields, store);
        };
    };
    const auto azure = [&](AzureBlobCredentialFields fields) {
        return [&, fields] {
            Forms::applyAzureBlobAccountKeyConfiguration(adapter, "x", fields, store);
        };
    };
    const auto ftp = [&](FTPCredentialFields fields) {
        return [&, fields] {
            Forms::applyFTPConfiguration(adapter, "x", fields);
        };
    };
    const auto sftp = [&](SFTPCredentialFields fields) {
        return [&, fields] {
            Forms::applySFTPConfiguration(adapter, "x", fields);
        };
    };
    const std::string folder = sandbox.folder().path().string();
    const std::vector<std::pair<std::function<void()>, std::string>> cases{
        {s3({"  ", "a", "", ""}), "Enter an AWS region (e.g. us-east-1)."},
        {s3({"r", "a", "\n", ""}), "Enter access key ID and secret access key."},
        {s3({"r", "a", "s", " "}), "Enter a bucket name."},
        {r2({}), "Enter your Cloudflare account ID."},
        {r2({"i", " ", "s", "b"}), "Enter the R2 access key ID and secret."},
        {gcs({"", "", missing, ""}), "Enter a bucket name."},
        {gcs({"b", "", "/k", "{}"}), "Use either a key file or pasted JSON\u2014not both."},
        {gcs({"b", "1", " ", "\t"}), "Choose a service account JSON key file, or paste the JSON."},
        {azure({"a", "", ""}), "Enter storage account name and key."},
        {azure({"a", "k", "\n"}), "Enter a container name."},
        {ftp({"h", "21", " ", "p"}), "Enter host and username."},
        {sftp({"h", "", "u", " ", ""}), "Enter a password or choose an SSH private key file."},
        {sftp({"h", "", "u", "p", missing}), "SSH key file not found."},
        {sftp({"h", "", "u", "", folder}), "SSH key file not found."}};
    for (const auto& [apply, message] : cases) {
        try {
            apply();
            ADD_FAILURE() << "accepted: " << message;
        } catch (const CredentialFormValidationError& error) {
            EXPECT_EQ(error.message(), message);
            EXPECT_EQ(*error.as<BrimvaleError::ScanFailed>(),
                      (BrimvaleError::ScanFailed{"x", message}));
        }
    }
    EXPECT_FALSE(std::filesystem::exists(ran));
    // A failing rclone run is rclone's error, and no scan root is stored.
    EXPECT_EQ(testing::scanFailedDetailOf(failureOf(s3({"r", "a", "s", "b"}))), "exit 1");
    EXPECT_TRUE(store.keys().empty());
}

TEST(NativeCredentialConfiguration, KeyFilesAreCheckedBeforeAnythingIsWrittenAndFoundAtHome) {
    testing::RcloneSandbox sandbox;
    const auto adapter = configurationAdapter(sandbox.realRunner());
    InMemorySettingsStore settings;
    EXPECT_EQ(testing::scanFailedDetailOf(failureOf([&] {
                  Forms::applyGCSConfiguration(
                      adapter, "g", {.bucket = "b", .keyFilePath = "/none/k.json"}, settings);
              })),
              "Key file not found at path.");
    EXPECT_FALSE(testing::configDump(sandbox).contains("g"));
    EXPECT_TRUE(settings.keys().empty());

    const std::string home = sandbox.folder().path().string();
    const std::string savedHome = std::getenv("HOME") != nullptr ? std::getenv("HOME") : "";
    ::setenv("HOME", home.c_str(), 1);
    testing::writeFile(sandbox.folder() / ".ssh" / "id", "key");
    EXPECT_EQ(Forms::expandingTildeInPath("~"), home);
    EXPECT_EQ(Forms::expandingTildeInPath("/a/~/b"), "/a/~/b");
    EXPECT_EQ(Forms::expandingTildeInPath("~root/x"), "/root/x");
    EXPECT_EQ(Forms::expandingTildeInPath("~no-such-user-here/x"), "~no-such-user-here/x");
    Forms::applySFTPConfiguration(adapter, "s",
                                  {.host = "h", .user = "u", .keyFilePath = " ~/.ssh/id "});
    ::setenv("HOME", savedHome.c_str(), 1);
    EXPECT_EQ(testing::configDump(sandbox).at("s").at("key_file"), home + "/.ssh/id");
}

TEST(NativeCredentialConfiguration, AnSftpAccountFromTheFormCanBeListed) {
    testing::RcloneSandbox sandbox;
    testing::writeFileOfSize(sandbox.folder() / "served" / "docs" / "a.txt", 1234);
    const auto server = testing::startSftpServer(sandbox, sandbox.folder() / "served");
    const auto adapter = configurationAdapter(sandbox.realRunner());
    const auto apply = [&](const std::string& password) {
        Forms::applySFTPConfiguration(adapter, "files",
                                      {.host = "127.0.0.1",
                                       .port = std::to_string(server.port),
                                       .user = "u",
                                       .password = password});
    };
    apply("p");
    const GenericRcloneAdapter files("files", "sftp", "SFTP (files)",
                                     {.runner = sandbox.realRunner()});
    const auto entries = files.listEntries("files:docs", {});
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(entries[0].name, "a.txt");
    EXPECT_EQ(entries[0].rawSize, 1234);
    // Submitting again rewrites the keys: a wrong password is now the server's refusal.
    apply("wrong");
    EXPECT_TRUE(testing::brimvaleErrorOf(failureOf([&] {
                    files.listEntries("files:", {});
                })).is<BrimvaleError::ScanFailed>());
}

} // namespace
} // namespace brimvale
