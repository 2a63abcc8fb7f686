#include "core/rclone/DropboxAdapter.h"
#include "core/rclone/GCSScanSettings.h"
#include "core/rclone/GenericRcloneAdapter.h"
#include "core/rclone/GoogleDriveAdapter.h"
#include "core/rclone/ObjectStorageScanPrefix.h"
#include "core/rclone/RemoteAccountLabel.h"
#include "core/rclone/RemoteListingSetup.h"
#include "core/rclone/RemoteWebURL.h"
#include "core/support/InMemorySettingsStore.h"

#include <gtest/gtest.h>

namespace brimvale {
namespace {

// base64url without padding, as JWTs carry their parts.
std::string base64url(const std::string& bytes) {
    static constexpr char kAlphabet[] =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";
    std::string text;
    for (std::size_t i = 0; i < bytes.size(); i += 3) {
        std::uint32_t group = static_cast<unsigned char>(bytes[i]) << 16;
        if (i + 1 < bytes.size())
            group |= static_cast<unsigned char>(bytes[i + 1]) << 8;
        if (i + 2 < bytes.size())
            group |= static_cast<unsigned char>(bytes[i + 2]);
        text += kAlphabet[(group >> 18) & 63];
        text += kAlphabet[(group >> 12) & 63];
        if (i + 1 < bytes.size())
            text += kAlphabet[(group >> 6) & 63];
        if (i + 2 < bytes.size())
            text += kAlphabet[group & 63];
    }
    return text;
}

std::string jwt(const std::string& payload) {
    return base64url(R"({"alg":"none"})") + "." + base64url(payload) + ".sig";
}

std::optional<std::string> label(const RemoteConfigSection& section, const char* type = "x") {
    return RemoteAccountLabel::pick(&section, "remote", type);
}

TEST(RemoteAccountLabel, TakesTheFirstLabelInOrder) {
    EXPECT_EQ(RemoteAccountLabel::pick(nullptr, "r", "drive"), std::nullopt);
    EXPECT_EQ(label({{"user", "u"}, {"account", "acc"}, {"client_email", ""}}), "acc");
    EXPECT_EQ(label({{"username", "name"}, {"token", R"({"email":"e@x"})"}}), "name");
    EXPECT_EQ(label({{"token", R"({"user_id":"7","preferred_username":"pu"})"}}), "pu");
    // A drive with no e-mail anywhere is named by its shared drive.
    EXPECT_EQ(label({{"token", R"({"access_token":"opaque"})"}, {"team_drive", "0ABC"}}, "drive"),
              "0ABC");
    EXPECT_EQ(label({{"team_drive", "0ABC"}}, "onedrive"), std::nullopt);
    // id_token with a bare "sub": nothing from it, so the access token is read next.
    const std::string token = nlohmann::json{{"id_token", jwt(R"({"sub":"12345"})")},
                                             {"access_token", jwt(R"({"upn":"me@corp"})")}}
                                  .dump();
    EXPECT_EQ(label({{"token", token}}), "me@corp");
    EXPECT_EQ(label({{"token", "not json"}}), std::nullopt);
    EXPECT_EQ(label({{"token", R"({"x":)" + std::string(100000, '[') + R"(], "email":"e@x"})"}}),
              std::nullopt);
}

TEST(RemoteAccountLabel, ReadsJWTPayloads) {
    // 16 bytes of payload make 22 characters: two "=" of padding are needed to decode them.
    const std::string shortPayload = R"({"email":"ab@c"})";
    EXPECT_EQ(base64url(shortPayload).size(), 22u);
    EXPECT_EQ(RemoteAccountLabel::labelFromJWTAccessToken(jwt(shortPayload)), "ab@c");
    EXPECT_EQ(RemoteAccountLabel::labelFromJWTAccessToken(jwt(R"({"name":"Ann Lee"})")), "Ann Lee");
    EXPECT_EQ(RemoteAccountLabel::labelFromJWTAccessToken(jwt(R"({"sub":"u@tenant"})")),
              "u@tenant");
    // base64url characters "-" and "_" decode as "+" and "/".
    EXPECT_EQ(
        RemoteAccountLabel::labelFromJWTAccessToken(jwt("{\"name\":\"Zo\xC3\xAB \xC3\x9Cnal\"}")),
        "Zo\xC3\xAB \xC3\x9Cnal");
    EXPECT_NE(base64url("{\"name\":\"Zo\xC3\xAB \xC3\x9Cnal\"}").find_first_of("-_"),
              std::string::npos);
    for (const std::string& opaque : std::vector<std::string>{
             "ya29.a0AfH6SM", "", ".", "a.b", "a.!!!!.c", "a." + base64url("[1,2]") + ".c",
             "a." + base64url(R"({"email":""})"), "a.x"}) {
        EXPECT_EQ(RemoteAccountLabel::labelFromJWTAccessToken(opaque), std::nullopt) << opaque;
    }
}

FileNodeRef node(const std::string& path, bool isDirectory, std::optional<std::string> id = {}) {
    return FileNode::make({.name = path.substr(path.rfind('/') + 1),
                           .path = path,
                           .isDirectory = isDirectory,
                           .providerID = std::move(id)});
}

TEST(RemoteWebURL, LinksEveryProvider) {
    using RemoteWebURL::url;
    const GoogleDriveAdapter drive("gd", "Drive");
    EXPECT_EQ(drive.webURL(*node("/a/f.txt", false, "X")),
              "https://drive.google.com/file/d/X/view");
    EXPECT_EQ(drive.webURL(*node("/a", true, "F1")), "https://drive.google.com/drive/folders/F1");
    EXPECT_EQ(drive.webURL(*node("/a/f.txt", false)), std::nullopt);
    const DropboxAdapter dropbox("db", "Dropbox");
    EXPECT_EQ(dropbox.webURL(*node("/My Files/r\xC3\xA9sum\xC3\xA9 #1.pdf", false)),
              "https://www.dropbox.com/home/My%20Files/r%C3%A9sum%C3%A9%20%231.pdf");
    EXPECT_EQ(dropbox.webURL(*node("/", true)), "https://www.dropbox.com/home");

    EXPECT_EQ(url("onedrive", *node("/x", false, "A!1")), "https://onedrive.live.com/?id=A%211");
    EXPECT_EQ(url("jottacloud", *node("/a b", true)), "https://www.jottacloud.com/files/a%20b");
    EXPECT_EQ(url("opendrive", *node("/", true)), "https://www.opendrive.com/files");
    EXPECT_EQ(url("putio", *node("/", true)), "https://app.put.io/files");
    EXPECT_EQ(url("putio", *node("/x", false, "9")), "https://app.put.io/files/9");
    EXPECT_EQ(url("yandex", *node("/p/q", true)), "https://disk.yandex.com/client/disk/p/q");
    for (const char* withoutLink : {"sftp", "seafile", "storj", "swift"}) {
        EXPECT_TRUE(RemoteWebURL::recognisesType(withoutLink));
        EXPECT_EQ(url(withoutLink, *node("/c", true, "1")), std::nullopt);
    }
    EXPECT_FALSE(RemoteWebURL::recognisesType("webdav"));
    EXPECT_EQ(url("webdav", *node("/c", true)), std::nullopt);
}

TEST(RemoteWebURL, ObjectStorageLinksUseTheBucket) {
    using RemoteWebURL::url;
    // The whole remote scanned: the first component is the bucket.
    EXPECT_EQ(url("s3", *node("/", true)), "https://s3.console.aws.amazon.com/s3/buckets");
    EXPECT_EQ(url("s3", *node("/bk", true)),
              "https://s3.console.aws.amazon.com/s3/buckets/bk?tab=objects");
    EXPECT_EQ(url("s3", *node("/bk/dir/sub", true)),
              "https://s3.console.aws.amazon.com/s3/buckets/bk?prefix=dir/sub/&tab=objects");
    EXPECT_EQ(url("s3", *node("/bk/dir/a b.txt", false)),
              "https://s3.console.aws.amazon.com/s3/object/bk?prefix=dir/a%20b.txt");
    // The bucket is the scan root; a stored prefix leads every key.
    EXPECT_EQ(url("s3", *node("/dir/f", false), {.scanRootBucket = "bk"}),
              "https://s3.console.aws.amazon.com/s3/object/bk?prefix=dir/f");
    EXPECT_EQ(url("s3", *node("/f", false), {.scanRootBucket = "bk/pre/"}),
              "https://s3.console.aws.amazon.com/s3/object/bk?prefix=pre/f");
    EXPECT_EQ(url("s3", *node("/f", false), {.s3EndpointIsAWS = false}), std::nullopt);
    EXPECT_EQ(url("gcs", *node("/", true)), "https://console.cloud.google.com/storage/browser");
    EXPECT_EQ(url("gcs", *node("/d", true), {.scanRootBucket = "b"}),
              "https://console.cloud.google.com/storage/browser/b?prefix=d/");
    EXPECT_EQ(url("gcs", *node("/b/d/o", false)),
              "https://console.cloud.google.com/storage/browser/_details/b/d/o");

    // Adapters find the stored bucket and whether the endpoint is AWS.
    auto settings = std::make_shared<InMemorySettingsStore>();
    ObjectStorageScanPrefix::setS3Bucket(*settings, "  photos\n", "aws");
    const GenericRcloneAdapter aws(
        "aws", "s3", "AWS",
        {.settings = settings, .configSection = RemoteConfigSection{{"provider", "AWS"}}});
    EXPECT_EQ(aws.webURL(*node("/x.jpg", false)),
              "https://s3.console.aws.amazon.com/s3/object/photos?prefix=x.jpg");
    const GenericRcloneAdapter r2(
        "r2", "s3", "R2",
        {.configSection = RemoteConfigSection{
             {"provider", "Cloudflare"}, {"endpoint", "https://acct.r2.cloudflarestorage.com"}}});
    EXPECT_EQ(r2.webURL(*node("/b/x", false)), std::nullopt);
}

TEST(RemoteListingSetup, ObjectStorageNeedsItsRootAndCredentials) {
    InMemorySettingsStore settings;
    const RemoteConfigSection s3{
        {"provider", "AWS"}, {"access_key_id", "A"}, {"secret_access_key", "S"}};
    EXPECT_FALSE(remoteHasMinimalListingSetup("s3", "s", s3, settings));
    ObjectStorageScanPrefix::setS3Bucket(settings, "b", "s");
    EXPECT_TRUE(remoteHasMinimalListingSetup("s3", "s", s3, settings));
    EXPECT_FALSE(remoteHasMinimalListingSetup(
        "s3", "s", {{"provider", "AWS"}, {"access_key_id", "A"}}, settings));
    EXPECT_TRUE(remoteHasMinimalListingSetup("s3", "s", {{"provider", "AWS"}, {"env_auth", "true"}},
                                             settings));
    EXPECT_FALSE(remoteHasMinimalListingSetup(
        "s3", "s", {{"provider", "AWS"}, {"env_auth", "True"}}, settings));
    EXPECT_TRUE(remoteHasMinimalListingSetup("s3", "s", {{"provider", "AWS"}, {"role_arn", "r"}},
                                             settings));
    EXPECT_FALSE(remoteHasMinimalListingSetup("s3", "s", {{"env_auth", "true"}}, settings));
    // Setting spaces removes the bucket again.
    ObjectStorageScanPrefix::setS3Bucket(settings, " \t\n", "s");
    EXPECT_EQ(ObjectStorageScanPrefix::storedS3Bucket(settings, "s"), std::nullopt);
    EXPECT_FALSE(settings.contains("Brimvale.objectPrefix.s3.s"));

    EXPECT_FALSE(
        remoteHasMinimalListingSetup("gcs", "g", {{"service_account_file", "/k.json"}}, settings));
    GCSScanSettings::setStoredBucket(settings, "bucket", "g");
    EXPECT_EQ(settings.stringValue("Brimvale.gcsScanBucket.g"), "bucket");
    EXPECT_TRUE(
        remoteHasMinimalListingSetup("gcs", "g", {{"service_account_file", "/k.json"}}, settings));
    EXPECT_FALSE(remoteHasMinimalListingSetup("gcs", "g", {{"token", "{}"}}, settings));
    GCSScanSettings::clearStoredBucket(settings, "g");
    EXPECT_FALSE(remoteHasMinimalListingSetup("gcs", "g", {{"service_account_credentials", "{}"}},
                                              settings));

    ObjectStorageScanPrefix::setAzureContainer(settings, "c", "z");
    EXPECT_EQ(settings.stringValue("Brimvale.objectPrefix.azure.z"), "c");
    EXPECT_TRUE(
        remoteHasMinimalListingSetup("azureblob", "z", {{"account", "a"}, {"key", "k"}}, settings));
    EXPECT_FALSE(remoteHasMinimalListingSetup("azureblob", "z", {{"account", "a"}}, settings));
    EXPECT_TRUE(remoteHasMinimalListingSetup("azureblob", "z", {{"sas_url", "u"}}, settings));
    ObjectStorageScanPrefix::clearAzureContainer(settings, "z");
    EXPECT_FALSE(remoteHasMinimalListingSetup("azureblob", "z", {{"sas_url", "u"}}, settings));

    EXPECT_TRUE(remoteHasMinimalListingSetup("ftp", "f", {{"host", "h"}, {"user", "u"}}, settings));
    EXPECT_FALSE(remoteHasMinimalListingSetup("ftp", "f", {{"host", "h"}, {"user", ""}}, settings));
    EXPECT_FALSE(
        remoteHasMinimalListingSetup("sftp", "f", {{"host", "h"}, {"user", "u"}}, settings));
    EXPECT_TRUE(remoteHasMinimalListingSetup(
        "sftp", "f", {{"host", "h"}, {"user", "u"}, {"key_pem", "K"}}, settings));
    EXPECT_TRUE(remoteHasMinimalListingSetup("drive", "d", {}, settings));
}

} // namespace
} // namespace brimvale
