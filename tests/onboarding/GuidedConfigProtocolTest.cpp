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

TEST(RcloneGuidedSetup, DecodesResponsesAndPicksAnswers) {
    // As rclone prints a question (other keys ignored, null counts as absent).
    const auto question = parseRcloneConfigResponse(
        R"( {"State":"*oauth-islocal,,","Option":{"Name":"config_is_local","Help":"Use auto config?",
        "Default":true,"Value":null,"Required":false,"Exclusive":true,"DefaultStr":"true",
        "Type":"bool"},"Error":"","Result":""} )",
        "gd");
    EXPECT_EQ(question,
              (RcloneConfigResponseJSON{.state = "*oauth-islocal,,",
                                        .option = RcloneConfigOptionJSON{.name = "config_is_local",
                                                                         .type = "bool",
                                                                         .defaultStr = "true",
                                                                         .help = "Use auto config?",
                                                                         .exclusive = true}}));
    EXPECT_EQ(parseRcloneConfigResponse(R"({"State":null,"Option":null,"error":"x"})", "gd"),
              RcloneConfigResponseJSON{});
    const auto failure = [](std::string_view output) {
        return testing::scanFailedDetailOf(
            failureOf([&] { parseRcloneConfigResponse(output, "gd"); }));
    };
    EXPECT_EQ(failure("{\"Error\":\"\xC3\x28\"}"), "config: invalid UTF-8");
    EXPECT_TRUE(failure(" \n").starts_with("Invalid configuration data: [json.exception"));
    EXPECT_EQ(failure(R"({"State": 3})"), "Invalid configuration data: \"State\" is not text");
    EXPECT_EQ(failure(R"({"Option": {"Required": "yes"}})"),
              "Invalid configuration data: \"Required\" is not a boolean");
    EXPECT_EQ(failure(R"({"Option":)" + std::string(100, '[') + std::string(100, ']') + "}"),
              "Invalid configuration data: nested too deeply");

    using Option = RcloneConfigOptionJSON;
    const auto pick = [](Option option) {
        return RcloneGuidedSetup::pickAnswer(option, "drive");
    };
    EXPECT_EQ(pick({.name = "client_secret", .defaultStr = "x"}), "");
    EXPECT_EQ(pick({.name = "client_secret", .required = true}), std::nullopt);
    EXPECT_EQ(pick({.name = "config_is_local", .type = "bool", .defaultStr = "false"}), "true");
    EXPECT_EQ(pick({.type = "bool", .defaultStr = "true", .help = "Ordinary"}), "true");
    EXPECT_EQ(pick({.type = "bool", .defaultStr = "true", .help = "EDIT Advanced Config?"}),
              "false");
    EXPECT_EQ(pick({.type = "string",
                    .defaultStr = "y",
                    .help = "edit advanced config",
                    .exclusive = true}),
              "false");
    // A free-text question that mentions it falls through to its default.
    EXPECT_EQ(pick({.type = "string", .defaultStr = "keep", .help = "edit advanced config"}),
              "keep");
    EXPECT_EQ(pick({.type = "bool", .required = true}), "false");
    EXPECT_EQ(pick({.type = "string"}), "");
    EXPECT_EQ(pick({.name = "config_login_token", .type = "string", .required = true}),
              std::nullopt);
}

TEST(RcloneGuidedSetup, TakesTheCompleteSignInAddressOnce) {
    const std::string url = "http://127.0.0.1:53682/auth?state=5d746zx11fBgnxRUHggTxQ";
    const std::string text = "NOTICE: If your browser doesn't open automatically go to the "
                             "following link: " +
                             url + "\nNOTICE: Log in\nagain " + url + "\n";
    // However the stream is cut into two reads, the whole address comes once.
    for (std::size_t cut = 0; cut <= text.size(); ++cut) {
        std::vector<std::string> received;
        OAuthContinueOutputSink sink(
            [&](const std::string& address) { received.push_back(address); });
        sink.appendStandardError(std::string_view(text).substr(0, cut));
        sink.appendStandardError(std::string_view(text).substr(cut));
        sink.finish();
        ASSERT_EQ(received, std::vector<std::string>{url}) << "cut at " << cut;
    }
    const auto find = [](std::string_view stream, bool ended = true) {
        const auto found = OAuthContinueOutputSink::findAuthorizationURL(stream, ended);
        return found ? std::string(*found) : std::string("-");
    };
    EXPECT_EQ(find("at \"https://localhost:1/auth?x=1'"), "https://localhost:1/auth?x=1");
    EXPECT_EQ(find("httphttp://127.0.0.1:9/auth?a\xE2\x80\xA8z"), "http://127.0.0.1:9/auth?a");
    EXPECT_EQ(find("http://127.0.0.2:9/auth?a http://127.0.0.1/auth?a http://localhost:9/auth? "
                   "http://LOCALHOST:9/auth?a https://accounts.google.com/o/oauth2/auth?a=1"),
              "-");
    EXPECT_EQ(find("http://127.0.0.1:9/auth?state=ab", false), "-");
}

TEST(RcloneOAuthBranding, RemovesTemplateKeysOfOneSectionAndNothingElse) {
    using RcloneOAuthBranding::strippingOAuthTemplateKeys;
    const std::string config = "# comment\r\n[other]\nconfig_template = keep\n\n[gd]\r\n"
                               "type = drive\r\n  config_template   = {{.Code}}\r\n"
                               "config_template_file=/p.html\nconfig_template_filex = stays\n"
                               "token = \xFF\xFE\n [ gd2 ] \nconfig_template = keep\n[gd]\n"
                               "config_template = again\nlast";
    EXPECT_EQ(strippingOAuthTemplateKeys(config, "gd"),
              "# comment\r\n[other]\nconfig_template = keep\n\n[gd]\r\ntype = drive\r\n"
              "config_template_filex = stays\ntoken = \xFF\xFE\n [ gd2 ] \nconfig_template = keep\n"
              "[gd]\nlast");
    EXPECT_EQ(strippingOAuthTemplateKeys(config, "GD"), config);
    EXPECT_EQ(strippingOAuthTemplateKeys("[gd]\nconfig_template = x", "gd"), "[gd]");

    // The file keeps its permissions; an absent file stays absent.
    testing::TemporaryFolder folder;
    testing::writeFile(folder / "rclone.conf", config);
    ::chmod((folder / "rclone.conf").c_str(), 0640);
    RcloneOAuthBranding::stripOAuthTemplateKeys((folder / "rclone.conf").string(), "gd");
    EXPECT_EQ(testing::readFile(folder / "rclone.conf"), strippingOAuthTemplateKeys(config, "gd"));
    struct stat status {};
    ::stat((folder / "rclone.conf").c_str(), &status);
    EXPECT_EQ(status.st_mode & 0777, 0640u);
    RcloneOAuthBranding::stripOAuthTemplateKeys((folder / "none.conf").string(), "gd");
    EXPECT_FALSE(std::filesystem::exists(folder / "none.conf"));

    EXPECT_EQ(RcloneOAuthBranding::configPathFromPathsOutput(
                  "Other: x\nConfig file:\t/a b/c.conf \r\nCache dir: /c\n"),
              "/a b/c.conf");
    for (const std::string_view bad :
         {"", "Config file:  \nConfig file: /later", " Config file: /x"}) {
        EXPECT_THROW(RcloneOAuthBranding::configPathFromPathsOutput(bad), std::runtime_error)
            << bad;
    }
}

} // namespace
} // namespace brimvale
