#include "cli/AccountSetupCommands.h"

#include "cli/CoordinatorSession.h"
#include "cli/DisplayText.h"
#include "cli/InterruptListener.h"
#include "core/onboarding/CloudServiceCatalog.h"

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <map>
#include <spawn.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

extern char** environ;

namespace brimvale::cli {
namespace {

constexpr int exitInterrupted = 130;

std::string lowercased(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

// SERVICE is a catalog row's remote-name stem ("gdrive", "r2"), its type ("drive", "s3") or its
// title ("Google Drive"); any other word is taken as an rclone backend type, set up through
// rclone's own questions.
CloudServiceDefinition serviceNamed(const std::string& service) {
    const std::string wanted = lowercased(service);
    const auto& rows = CloudServiceCatalog::majorServices();
    for (const auto& row : rows) {
        if (row.defaultRemoteName == wanted) {
            return row;
        }
    }
    for (const auto& row : rows) {
        if (row.rcloneType == wanted || lowercased(row.displayName) == wanted) {
            return row;
        }
    }
    return {.rcloneType = wanted, .displayName = service, .defaultRemoteName = wanted};
}

struct FormField {
    const char* key;
    bool required;
    bool secret;
};

std::vector<FormField> formFields(const NativeCredentialOnboardingKind& kind) {
    using Form = NativeCredentialOnboardingKind::Form;
    switch (kind.form()) {
    case Form::s3:
        if (kind.s3Variant() == S3CatalogVariant::cloudflareR2) {
            return {{"account_id", true, false},
                    {"access_key_id", true, false},
                    {"secret_access_key", true, true},
                    {"bucket", true, false}};
        }
        return {{"region", true, false},
                {"access_key_id", true, false},
                {"secret_access_key", true, true},
                {"bucket", true, false}};
    case Form::gcs:
        return {{"bucket", true, false},
                {"project_number", false, false},
                {"key_file", false, false},
                {"service_account_json", false, true}};
    case Form::azureBlob:
        return {{"account", true, false}, {"key", true, true}, {"container", true, false}};
    case Form::ftp:
        return {{"host", true, false},
                {"port", false, false},
                {"user", false, false},
                {"pass", false, true}};
    case Form::sftp:
        return {{"host", true, false},
                {"port", false, false},
                {"user", false, false},
                {"pass", false, true},
                {"key_file", false, false}};
    }
    return {};
}

// The form's fields from the --field values (missing ones empty: the form says what is needed).
NativeCredentialFields formInput(const NativeCredentialOnboardingKind& kind,
                                 const std::function<std::string(const char*)>& field) {
    using Form = NativeCredentialOnboardingKind::Form;
    switch (kind.form()) {
    case Form::s3:
        if (kind.s3Variant() == S3CatalogVariant::cloudflareR2) {
            return CloudflareR2CredentialFields{field("account_id"), field("access_key_id"),
                                                field("secret_access_key"), field("bucket")};
        }
        return S3AwsCredentialFields{field("region"), field("access_key_id"),
                                     field("secret_access_key"), field("bucket")};
    case Form::gcs:
        return GCSCredentialFields{field("bucket"), field("project_number"), field("key_file"),
                                   field("service_account_json")};
    case Form::azureBlob:
        return AzureBlobCredentialFields{field("account"), field("key"), field("container")};
    case Form::ftp:
        return FTPCredentialFields{field("host"), field("port"), field("user"), field("pass")};
    case Form::sftp:
        break;
    }
    return SFTPCredentialFields{field("host"), field("port"), field("user"), field("pass"),
                                field("key_file")};
}

struct AddArguments {
    std::string service;
    std::optional<std::string> name;
    std::map<std::string, std::string> fields;
};

// One line of standard input; on a terminal the prompt is the key and the typing is not shown.
std::string readSecretLine(const std::string& key) {
    termios saved{};
    const bool terminal = ::isatty(STDIN_FILENO) && ::tcgetattr(STDIN_FILENO, &saved) == 0;
    if (terminal) {
        std::cerr << key << ": " << std::flush;
        termios hidden = saved;
        hidden.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        ::tcsetattr(STDIN_FILENO, TCSAFLUSH, &hidden);
    }
    std::string line;
    const bool read = static_cast<bool>(std::getline(std::cin, line));
    if (terminal) {
        ::tcsetattr(STDIN_FILENO, TCSAFLUSH, &saved);
        std::cerr << '\n';
    }
    if (!read) {
        throw UsageError("no value for " + key + " on standard input");
    }
    if (!line.empty() && line.back() == '\r') {
        line.pop_back();
    }
    return line;
}

AddArguments parseAddArguments(std::span<const std::string> arguments) {
    AddArguments parsed;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const std::string& argument = arguments[i];
        const auto value = [&]() -> const std::string& {
            if (i + 1 >= arguments.size()) {
                throw UsageError(argument + " needs a value");
            }
            return arguments[++i];
        };
        if (argument == "--name") {
            parsed.name = value();
        } else if (argument == "--field" || argument == "--field-from-env") {
            const std::string& pair = value();
            const auto equals = pair.find('=');
            if (equals == std::string::npos || equals == 0) {
                throw UsageError(argument +
                                 " takes KEY=" + (argument == "--field" ? "VALUE" : "VARIABLE"));
            }
            const std::string key = pair.substr(0, equals);
            std::string text = pair.substr(equals + 1);
            if (argument == "--field-from-env") {
                const char* fromEnvironment = std::getenv(text.c_str());
                if (fromEnvironment == nullptr) {
                    throw UsageError("the environment variable " + text + " is not set");
                }
                text = fromEnvironment;
            }
            parsed.fields[key] = text;
        } else if (argument == "--field-from-stdin") {
            const std::string key = value();
            parsed.fields[key] = readSecretLine(key);
        } else if (argument.starts_with("--")) {
            throw UsageError("unknown option '" + argument + "'");
        } else if (parsed.service.empty()) {
            parsed.service = argument;
        } else {
            throw UsageError("unexpected argument '" + argument + "'");
        }
    }
    if (parsed.service.empty()) {
        throw UsageError("name the service to add (for example sftp, s3, gdrive)");
    }
    return parsed;
}

// Opens a sign-in page in the desktop's browser when there is a desktop; the address is always
// printed too, for a terminal without one.
void openInBrowser(const std::string& url) {
    if (std::getenv("DISPLAY") == nullptr && std::getenv("WAYLAND_DISPLAY") == nullptr) {
        return;
    }
    pid_t child = 0;
    const char* arguments[] = {"xdg-open", url.c_str(), nullptr};
    if (::posix_spawnp(&child, "xdg-open", nullptr, nullptr, const_cast<char**>(arguments),
                       environ) == 0) {
        int status = 0;
        ::waitpid(child, &status, 0);
    }
}

// Runs the loop until `done`, printing every sign-in address as it becomes known. Ctrl-C calls
// `onInterrupt` on the loop and ends the wait; returns false then.
bool waitForFlow(CoordinatorSession& session, const bool& done, CommandStreams streams,
                 const std::function<void()>& onInterrupt) {
    ScannerViewModel& viewModel = session.viewModel();
    bool interrupted = false;
    InterruptListener listener([&] {
        session.loop().post([&] {
            interrupted = true;
            onInterrupt();
            session.stop();
        });
    });
    session.runUntil([&] { return done || interrupted; },
                     [&](PublishedField field) {
                         if (field == PublishedField::oauthBrowserURL &&
                             viewModel.oauthBrowserURL()) {
                             const std::string url = *viewModel.oauthBrowserURL();
                             viewModel.acknowledgeOAuthBrowserOpened();
                             streams.err << "Sign in through your browser: " << url << '\n'
                                         << "(waiting for the sign-in; Ctrl-C cancels)\n";
                             openInBrowser(url);
                         }
                     });
    return !interrupted;
}

int addAccount(std::span<const std::string> rawArguments, CommandStreams streams) {
    const AddArguments arguments = parseAddArguments(rawArguments);
    const CloudServiceDefinition service = serviceNamed(arguments.service);
    const auto kind = CloudServiceCatalog::nativeOnboardingKind(service);
    if (kind) {
        const auto fields = formFields(*kind);
        for (const auto& entry : arguments.fields) {
            const std::string& key = entry.first;
            if (std::none_of(fields.begin(), fields.end(),
                             [&](const FormField& field) { return key == field.key; })) {
                std::string known;
                for (const auto& field : fields) {
                    known += std::string(known.empty() ? "" : ", ") + field.key;
                }
                throw UsageError(service.displayName + " has no field '" + key +
                                 "'; its fields are " + known);
            }
        }
    } else if (!arguments.fields.empty()) {
        throw UsageError(service.displayName +
                         " is set up by signing in, not with --field (its answers come from "
                         "rclone's own questions)");
    }

    CoordinatorSession session;
    ScannerViewModel& viewModel = session.viewModel();
    session.loadAccounts();
    viewModel.beginAddAccount();
    viewModel.addAccountPickService(service);
    const std::string name =
        arguments.name.value_or(viewModel.addAccountPendingRemoteName().value_or(""));
    if (auto problem = viewModel.remoteNameProblem(name)) {
        streams.err << "brimvale-cli accounts add: " << displayText(*problem) << '\n';
        return exitFailure;
    }

    bool done = false;
    bool succeeded = false;
    const auto finished = [&](bool ok) {
        succeeded = ok;
        done = true;
    };
    const auto field = [&](const char* key) {
        const auto found = arguments.fields.find(key);
        return found == arguments.fields.end() ? std::string() : found->second;
    };
    if (kind) {
        viewModel.applyNativeCredentials(name, formInput(*kind, field), finished);
    } else {
        viewModel.runAddAccountGuidedFlow(name, service.rcloneType, finished);
    }
    if (!waitForFlow(session, done, streams, [&] { viewModel.cancelAddAccount(); })) {
        // Let the cancelled flow end (its half-made remote is deleted) before leaving.
        session.runUntil([&] { return !viewModel.hasBackgroundWork(); });
        streams.err << "brimvale-cli accounts add: cancelled\n";
        return exitInterrupted;
    }
    if (!succeeded) {
        if (viewModel.addAccountWebURL()) {
            // rclone made the remote but saw no sign-in token: right for backends that never
            // sign in (memory, alias…); others may need settings rclone asks only on a terminal.
            viewModel.completeAddAccount();
            session.runUntil([&] { return !viewModel.hasBackgroundWork(); });
            streams.out << "Added " << displayText(service.displayName) << " account "
                        << displayText(name) << ". Scan it with: brimvale-cli scan "
                        << displayText(name) << ":\n";
            streams.err << "rclone confirmed no sign-in for it; if it needs more settings, finish "
                           "them with `rclone config` or `brimvale-cli web-config`.\n";
            return exitSuccess;
        }
        streams.err << "brimvale-cli accounts add: "
                    << displayText(
                           viewModel.addAccountError().value_or("the account was not added"))
                    << '\n';
        viewModel.cancelAddAccount();
        session.runUntil([&] { return !viewModel.hasBackgroundWork(); });
        return exitFailure;
    }
    streams.out << "Added " << displayText(service.displayName) << " account " << displayText(name)
                << ". Scan it with: brimvale-cli scan " << displayText(name) << ":\n";
    session.runUntil([&] { return !viewModel.hasBackgroundWork(); });
    return exitSuccess;
}

ProviderRef configuredAccount(ScannerViewModel& viewModel, std::string name, CommandStreams streams,
                              const char* command) {
    if (name.ends_with(':')) {
        name.pop_back();
    }
    const ProviderRef provider = viewModel.provider(name);
    if (!provider || !viewModel.configuredRemoteNames().contains(name)) {
        streams.err << "brimvale-cli accounts " << command << ": there is no account named '"
                    << displayText(name) << "'\n";
        return nullptr;
    }
    return provider;
}

int reconnectAccount(std::span<const std::string> arguments, CommandStreams streams) {
    if (arguments.size() != 1) {
        throw UsageError("accounts reconnect takes one account name");
    }
    CoordinatorSession session;
    ScannerViewModel& viewModel = session.viewModel();
    session.loadAccounts();
    const ProviderRef provider = configuredAccount(viewModel, arguments[0], streams, "reconnect");
    if (!provider) {
        return exitFailure;
    }
    bool done = false;
    bool succeeded = false;
    viewModel.beginReconnect(provider, [&](bool ok) {
        succeeded = ok;
        done = true;
    });
    if (!waitForFlow(session, done, streams, [&] { viewModel.cancelSetup(provider); })) {
        session.runUntil([&] { return !viewModel.hasBackgroundWork(); });
        streams.err << "brimvale-cli accounts reconnect: cancelled\n";
        return exitInterrupted;
    }
    session.runUntil([&] { return !viewModel.hasBackgroundWork(); });
    if (!succeeded) {
        const ScannerState pane = viewModel.paneState(provider->remoteID());
        const auto* failure = pane.as<ScannerState::Error>();
        streams.err << "brimvale-cli accounts reconnect: "
                    << displayText(failure ? failure->info.message
                                           : std::string("the sign-in did not finish"))
                    << '\n';
        viewModel.dismissWebConfigSheet();
        return exitFailure;
    }
    streams.out << "Reconnected " << displayText(provider->displayName()) << '\n';
    return exitSuccess;
}

int removeAccount(std::span<const std::string> arguments, CommandStreams streams) {
    bool confirmed = false;
    std::vector<std::string> names;
    for (const auto& argument : arguments) {
        if (argument == "--yes" || argument == "-y") {
            confirmed = true;
        } else if (argument.starts_with("-")) {
            throw UsageError("unknown option '" + argument + "'");
        } else {
            names.push_back(argument);
        }
    }
    if (names.size() != 1) {
        throw UsageError("accounts remove takes one account name");
    }
    const bool onTerminal = &streams.err == &std::cerr && ::isatty(STDIN_FILENO);
    if (!confirmed && !onTerminal) {
        throw UsageError("removing an account needs --yes when no one can answer the question");
    }
    CoordinatorSession session;
    ScannerViewModel& viewModel = session.viewModel();
    session.loadAccounts();
    const ProviderRef provider = configuredAccount(viewModel, names[0], streams, "remove");
    if (!provider) {
        return exitFailure;
    }
    if (!confirmed) {
        streams.err << "This removes the saved connection and cached file list from this "
                       "computer. You can add the account again using Add account in the "
                       "toolbar.\nRemove "
                    << displayText(provider->displayName()) << "? [y/N] " << std::flush;
        std::string answer;
        std::getline(std::cin, answer);
        if (answer != "y" && answer != "Y" && answer != "yes") {
            streams.err << "Nothing removed.\n";
            return exitFailure;
        }
    }
    bool done = false;
    viewModel.removeAccount(provider, [&done] { done = true; });
    session.runUntil([&] { return done; });
    session.runUntil([&] { return !viewModel.hasBackgroundWork(); });
    if (const auto& failure = viewModel.accountRemovalError()) {
        streams.err << "brimvale-cli accounts remove: Couldn\u2019t remove account: "
                    << displayText(*failure) << '\n';
        return exitFailure;
    }
    streams.out << "Removed " << displayText(provider->displayName()) << '\n';
    return exitSuccess;
}

} // namespace

int runAccountSetupCommand(const std::string& subcommand, std::span<const std::string> arguments,
                           CommandStreams streams) {
    if (subcommand == "add") {
        return addAccount(arguments, streams);
    }
    if (subcommand == "reconnect") {
        return reconnectAccount(arguments, streams);
    }
    return removeAccount(arguments, streams);
}

int runWebConfig(std::span<const std::string> arguments, CommandStreams streams) {
    if (!arguments.empty()) {
        throw UsageError("web-config takes no arguments");
    }
    CoordinatorSession session;
    ScannerViewModel& viewModel = session.viewModel();
    viewModel.openAddAccountAdvancedWebUI();
    if (!viewModel.addAccountWebURL()) {
        streams.err << "brimvale-cli web-config: "
                    << displayText(viewModel.addAccountError().value_or("could not start")) << '\n';
        return exitFailure;
    }
    // Listening before the address is printed: whoever reads it may press Ctrl-C at once.
    bool interrupted = false;
    InterruptListener listener([&] {
        session.loop().post([&] {
            interrupted = true;
            viewModel.cancelAddAccount();
            session.stop();
        });
    });
    streams.out << "rclone's configuration website runs at " << *viewModel.addAccountWebURL()
                << "\n(on this computer only; Ctrl-C stops it)" << std::endl;
    openInBrowser(*viewModel.addAccountWebURL());
    session.runUntil([&] { return interrupted; });
    session.runUntil([&] { return !viewModel.hasBackgroundWork(); });
    streams.err << "Stopped.\n";
    return exitSuccess;
}

} // namespace brimvale::cli
