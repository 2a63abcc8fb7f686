// Feeds arbitrary bytes to the decoders of the guided configuration: one step's response (and
// the answer chosen for its question), rclone's standard error watched for the sign-in address
// (cut into two reads at a place the input chooses), the `config paths` output and the
// template-key clean-up of a configuration file.
#include "core/onboarding/OAuthContinueOutputSink.h"
#include "core/onboarding/RcloneConfigResponseJSON.h"
#include "core/onboarding/RcloneGuidedSetup.h"
#include "core/onboarding/RcloneOAuthBranding.h"
#include "core/rclone/BrimvaleError.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <stdexcept>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    try {
        const auto response = brimvale::parseRcloneConfigResponse(bytes, "fuzz");
        if (response.option) {
            brimvale::RcloneGuidedSetup::pickAnswer(*response.option, "fuzz");
        }
    } catch (const brimvale::BrimvaleError&) {
    }

    int calls = 0;
    brimvale::OAuthContinueOutputSink sink([&](const std::string& url) {
        if (++calls > 1 || !url.starts_with("http")) {
            std::abort();
        }
    });
    const std::size_t cut = size == 0 ? 0 : data[0] % (size + 1);
    sink.appendStandardError(bytes.substr(0, cut));
    sink.appendStandardError(bytes.substr(cut));
    sink.finish();

    try {
        brimvale::RcloneOAuthBranding::configPathFromPathsOutput(bytes);
    } catch (const std::runtime_error&) {
    }
    const std::string stripped =
        brimvale::RcloneOAuthBranding::strippingOAuthTemplateKeys(bytes, "gd");
    if (stripped.size() > bytes.size()) {
        std::abort();
    }
    return 0;
}
