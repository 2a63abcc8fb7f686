#include "core/onboarding/OAuthContinueOutputSink.h"
#include "core/onboarding/RcloneConfigResponseJSON.h"
#include "core/onboarding/RcloneGuidedSetup.h"
#include "core/onboarding/RcloneOAuthBranding.h"
#include "tests/onboarding/OnboardingTestSupport.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

namespace brimvale {
namespace {

using testing::failureOf;
using testing::scanFailedDetailOf;

std::string parseFailure(std::string_view output) {
    return scanFailedDetailOf(failureOf([&] { parseRcloneConfigResponse(output, "gd"); }));
}

TEST(RcloneConfigResponseJSON, DecodesQuestionsAndRefusesAnythingElse) {
    // As rclone 1.60 prints a question (other keys ignored, null Value).
    const auto question = parseRcloneConfigResponse(R"(
{
	"State": "*oauth-islocal,teamdrive,,",
	"Option": {"Name": "config_is_local", "Help": "Use auto config?", "Provider": "",
		"Default": true, "Value": null, "Examples": [{"Value": "true"}], "Required": false,
		"Exclusive": true, "DefaultStr": "true", "Type": "bool"},
	"Error": "",
	"Result": ""
}
)",
                                                    "gd");
    EXPECT_EQ(question.state, "*oauth-islocal,teamdrive,,");
    ASSERT_TRUE(question.option.has_value());
    EXPECT_EQ(*question.option, (RcloneConfigOptionJSON{.name = "config_is_local",
                                                        .type = "bool",
                                                        .defaultStr = "true",
                                                        .help = "Use auto config?",
                                                        .required = false,
                                                        .exclusive = true}));
    // The end of the protocol: "Option": null, and keys may be missing altogether.
    EXPECT_EQ(parseRcloneConfigResponse(R"({"State":"","Option":null,"Error":""})", "gd"),
              RcloneConfigResponseJSON{});
    EXPECT_EQ(parseRcloneConfigResponse("{}", "gd"), RcloneConfigResponseJSON{});
    EXPECT_EQ(parseRcloneConfigResponse(R"({"State":null,"Error":null,"Option":{}})", "gd"),
              (RcloneConfigResponseJSON{.option = RcloneConfigOptionJSON{}}));
    // Keys are case-sensitive.
    EXPECT_EQ(parseRcloneConfigResponse(R"({"state":"s","error":"e"})", "gd"),
              RcloneConfigResponseJSON{});
    // Non-ASCII text survives.
    EXPECT_EQ(parseRcloneConfigResponse("{\"Error\":\"Fehler \xC3\xBC\"}", "gd").error,
              "Fehler \xC3\xBC");

    EXPECT_EQ(parseFailure("caf\xC3 {}"), "config: invalid UTF-8");
    EXPECT_EQ(parseFailure("{\"Error\":\"\xFF\"}"), "config: invalid UTF-8");
    for (const std::string_view empty : {"", " \n\t", "\xC2\xA0"}) {
        EXPECT_TRUE(parseFailure(empty).starts_with("Invalid configuration data: "))
            << parseFailure(empty);
    }
    EXPECT_EQ(parseFailure("[]"), "Invalid configuration data: not an object");
    EXPECT_EQ(parseFailure(R"({"State": 3})"), "Invalid configuration data: \"State\" is not text");
    EXPECT_EQ(parseFailure(R"({"Option": "x"})"),
              "Invalid configuration data: \"Option\" is not an object");
    EXPECT_EQ(parseFailure(R"({"Option": {"Required": "yes"}})"),
              "Invalid configuration data: \"Required\" is not a boolean");
    EXPECT_TRUE(parseFailure(R"({"State": "a")").starts_with("Invalid configuration data: "));
    EXPECT_TRUE(
        parseFailure(R"({"State": "a"} trailing)").starts_with("Invalid configuration data: "));
    // Deep nesting is refused before it is parsed.
    const std::string deep =
        R"({"Option":{"Examples":)" + std::string(200, '[') + std::string(200, ']') + "}}";
    EXPECT_EQ(parseFailure(deep), "Invalid configuration data: nested too deeply");
    // The error names the account.
    const auto error =
        testing::brimvaleErrorOf(failureOf([] { parseRcloneConfigResponse("", "acct"); }));
    EXPECT_EQ(error.as<BrimvaleError::ScanFailed>()->accountName, "acct");
}

TEST(RcloneGuidedSetup, PickAnswerRulesInOrder) {
    const auto pick = [](RcloneConfigOptionJSON option) {
        return RcloneGuidedSetup::pickAnswer(option, "drive");
    };
    using Option = RcloneConfigOptionJSON;
    // Application credentials: left empty unless the question insists (even with a default).
    EXPECT_EQ(pick(Option{.name = "client_secret", .type = "string", .defaultStr = "x"}), "");
    EXPECT_EQ(pick(Option{.name = "client_id"}), "");
    EXPECT_EQ(pick(Option{.name = "client_secret", .required = true}), std::nullopt);
    // The local OAuth flow, whatever the default says.
    EXPECT_EQ(pick(Option{.name = "config_is_local", .type = "bool", .defaultStr = "false"}),
              "true");
    // Advanced config is declined for bools and for exclusive choices, in any letter case.
    EXPECT_EQ(pick(Option{.name = "config_fs_advanced",
                          .type = "bool",
                          .defaultStr = "true",
                          .help = "Edit advanced config?"}),
              "false");
    EXPECT_EQ(pick(Option{.name = "x",
                          .type = "string",
                          .defaultStr = "yes",
                          .help = "Do you want to EDIT ADVANCED CONFIG now",
                          .exclusive = true}),
              "false");
    // … but a free-text question that mentions it falls through to its default.
    EXPECT_EQ(
        pick(Option{
            .name = "x", .type = "string", .defaultStr = "keep", .help = "edit advanced config"}),
        "keep");
    EXPECT_EQ(
        pick(Option{.name = "flag", .type = "bool", .defaultStr = "true", .help = "Ordinary help"}),
        "true");
    EXPECT_EQ(pick(Option{.name = "flag", .type = "bool", .required = true}), "false");
    EXPECT_EQ(pick(Option{.name = "region", .type = "string", .defaultStr = "eu"}), "eu");
    EXPECT_EQ(pick(Option{.name = "region", .type = "string"}), "");
    EXPECT_EQ(pick(Option{.name = "config_login_token", .type = "string", .required = true}),
              std::nullopt);
    EXPECT_EQ(pick(Option{.name = "n", .required = true}), std::nullopt);

    EXPECT_EQ(RcloneGuidedSetup::tokenlessProviderTypes(),
              (std::set<std::string, std::less<>>{"local"}));
}

TEST(OAuthContinueOutputSink, HandsOverTheCompleteAddressOnce) {
    const std::string url = "http://127.0.0.1:53682/auth?state=5d746zx11fBgnxRUHggTxQ";
    const std::string stderrText =
        "2026/11/22 23:13:57 NOTICE: If your browser doesn't open automatically go to the "
        "following link: " +
        url + "\n2026/11/22 23:13:57 NOTICE: Log in and authorize rclone for access\n" +
        "again: " + url + "\n";
    // Every way of cutting the stream into two reads gives the whole address, once.
    for (std::size_t cut = 0; cut <= stderrText.size(); ++cut) {
        std::vector<std::string> received;
        OAuthContinueOutputSink sink(
            [&](const std::string& address) { received.push_back(address); });
        sink.appendStandardError(std::string_view(stderrText).substr(0, cut));
        sink.appendStandardError(std::string_view(stderrText).substr(cut));
        sink.finish();
        ASSERT_EQ(received, std::vector<std::string>{url}) << "cut at " << cut;
        EXPECT_TRUE(sink.authURLSent());
        EXPECT_EQ(sink.errBuffer(), stderrText);
    }

    const auto find = [](std::string_view text, bool ended = true) {
        const auto found = OAuthContinueOutputSink::findAuthorizationURL(text, ended);
        return found ? std::string(*found) : std::string("-");
    };
    EXPECT_EQ(find("go to https://localhost:1/auth?x=1'"), "https://localhost:1/auth?x=1");
    EXPECT_EQ(find("\"http://127.0.0.1:9/auth?a\"b"), "http://127.0.0.1:9/auth?a");
    EXPECT_EQ(find("http://127.0.0.1:9/auth?a\xE2\x80\xA8z"), "http://127.0.0.1:9/auth?a");
    EXPECT_EQ(find("http://127.0.0.1:9/auth?\xC3\xA9t\xC3\xA9 "),
              "http://127.0.0.1:9/auth?\xC3\xA9t\xC3\xA9");
    // Not the local sign-in page: other hosts, no port, other paths, an empty query, the
    // provider's own address.
    EXPECT_EQ(find("http://127.0.0.2:9/auth?a http://127.0.0.1/auth?a http://localhost:9/aut?a"),
              "-");
    EXPECT_EQ(find("http://localhost:9/auth? http://LOCALHOST:9/auth?a ftp://localhost:9/auth?a"),
              "-");
    EXPECT_EQ(find("https://accounts.google.com/o/oauth2/auth?client_id=1"), "-");
    // A false start before the real one.
    EXPECT_EQ(find("httphttps://localhost:53682/auth?s=1\n"), "https://localhost:53682/auth?s=1");
    // An address at the very end counts only once the stream has ended.
    EXPECT_EQ(find("at http://127.0.0.1:53682/auth?state=ab", false), "-");
    EXPECT_EQ(find("at http://127.0.0.1:53682/auth?state=ab", true),
              "http://127.0.0.1:53682/auth?state=ab");

    // A callback-less sink and a sink that never sees an address.
    OAuthContinueOutputSink quiet(nullptr);
    quiet.appendStandardError(url + "\n");
    EXPECT_TRUE(quiet.authURLSent());
    int calls = 0;
    OAuthContinueOutputSink none([&](const std::string&) { ++calls; });
    none.appendStandardError("NOTICE: nothing to see\n");
    none.finish();
    EXPECT_EQ(calls, 0);
    EXPECT_FALSE(none.authURLSent());
}

TEST(RcloneOAuthBranding, StripsTemplateKeysOfOneSectionOnly) {
    using RcloneOAuthBranding::strippingOAuthTemplateKeys;
    const std::string config = "# top comment\r\n"
                               "[other]\n"
                               "type = drive\n"
                               "config_template = keep me\n"
                               "\n"
                               "[gd]\r\n"
                               "type = drive\r\n"
                               "  config_template   = {{.Code}}\r\n"
                               "config_template_file=/x/page.html\n"
                               "config_template_filex = stays\n"
                               "config_template\n"
                               "token = {\"access_token\":\"\xFF\xFE\"}\n"
                               " [ gd2 ] \n"
                               "config_template = keep too\n"
                               "[gd]\n"
                               "config_template = second section of the same name\n"
                               "last line without break";
    EXPECT_EQ(strippingOAuthTemplateKeys(config, "gd"), "# top comment\r\n"
                                                        "[other]\n"
                                                        "type = drive\n"
                                                        "config_template = keep me\n"
                                                        "\n"
                                                        "[gd]\r\n"
                                                        "type = drive\r\n"
                                                        "config_template_filex = stays\n"
                                                        "token = {\"access_token\":\"\xFF\xFE\"}\n"
                                                        " [ gd2 ] \n"
                                                        "config_template = keep too\n"
                                                        "[gd]\n"
                                                        "last line without break");
    // Nothing to remove: every byte the same; a key as the very first or last line.
    EXPECT_EQ(strippingOAuthTemplateKeys(config, "absent"), config);
    EXPECT_EQ(strippingOAuthTemplateKeys("", "gd"), "");
    EXPECT_EQ(strippingOAuthTemplateKeys("[gd]\nconfig_template = x", "gd"), "[gd]");
    EXPECT_EQ(strippingOAuthTemplateKeys("[gd]\nconfig_template = x\n", "gd"), "[gd]\n");
    // Section names are matched exactly (case and all).
    EXPECT_EQ(strippingOAuthTemplateKeys("[GD]\nconfig_template = x\n", "gd"),
              "[GD]\nconfig_template = x\n");

    // The file: rewritten in place with its permissions; absent files stay absent.
    testing::TemporaryFolder folder;
    const auto path = folder / "rclone.conf";
    testing::writeFile(path, config);
    ::chmod(path.c_str(), 0640);
    RcloneOAuthBranding::stripOAuthTemplateKeys(path.string(), "gd");
    EXPECT_EQ(testing::readFile(path), strippingOAuthTemplateKeys(config, "gd"));
    struct stat status {};
    ::stat(path.c_str(), &status);
    EXPECT_EQ(status.st_mode & 0777, 0640u);
    RcloneOAuthBranding::stripOAuthTemplateKeys((folder / "none.conf").string(), "gd");
    EXPECT_FALSE(std::filesystem::exists(folder / "none.conf"));
}

TEST(RcloneOAuthBranding, ConfigPathFromRclonePathsOutput) {
    using RcloneOAuthBranding::configPathFromPathsOutput;
    EXPECT_EQ(configPathFromPathsOutput("Config file: /home/u/.config/rclone/rclone.conf\n"
                                        "Cache dir:   /home/u/.cache/rclone\nTemp dir:    /tmp\n"),
              "/home/u/.config/rclone/rclone.conf");
    EXPECT_EQ(
        configPathFromPathsOutput("Other: x\nConfig file:\t/a b/c.conf \r\nConfig file: /d\n"),
        "/a b/c.conf");
    for (const std::string_view bad :
         {"", "Cache dir: /x\n", "Config file:   \nConfig file: /later", " Config file: /x",
          "config file: /x"}) {
        const auto failure = failureOf([&] { configPathFromPathsOutput(bad); });
        ASSERT_TRUE(failure) << bad;
        try {
            std::rethrow_exception(failure);
        } catch (const std::runtime_error& error) {
            EXPECT_STREQ(error.what(), "Could not find rclone config file path.");
        }
    }
}

} // namespace
} // namespace brimvale
