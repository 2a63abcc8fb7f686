#include "cli/AccountsCommand.h"

#include "cli/AccountSetupCommands.h"
#include "cli/CoordinatorSession.h"
#include "cli/DisplayText.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <ostream>

namespace brimvale::cli {
namespace {

struct AccountRow {
    std::string id;
    std::string type;
    std::string name;
    bool configured;
    bool ready;
    bool shown;
};

std::vector<AccountRow> accountRows(const ScannerViewModel& viewModel) {
    std::vector<AccountRow> rows;
    for (const auto& provider : viewModel.providers()) {
        const std::string id = provider->remoteID();
        const auto ready = viewModel.sidebarRemoteReadyForUse().find(id);
        rows.push_back({id, provider->rcloneType(), provider->displayName(),
                        viewModel.configuredRemoteNames().contains(id),
                        ready != viewModel.sidebarRemoteReadyForUse().end() && ready->second,
                        viewModel.sidebarRemoteShowsInMainList(*provider)});
    }
    return rows;
}

void printTable(const std::vector<AccountRow>& rows, std::ostream& out) {
    std::size_t idWidth = 7;
    std::size_t typeWidth = 4;
    for (const auto& row : rows) {
        idWidth = std::max(idWidth, displayText(row.id).size());
        typeWidth = std::max(typeWidth, displayText(row.type).size());
    }
    const auto padded = [](std::string text, std::size_t width) {
        text.resize(std::max(text.size(), width), ' ');
        return text;
    };
    out << padded("ACCOUNT", idWidth) << "  " << padded("TYPE", typeWidth)
        << "  STATUS      NAME\n";
    for (const auto& row : rows) {
        // The local disk needs no setup: its pinned row scans this computer as it is.
        const char* status = row.type == "local" ? "ready"
                             : !row.configured   ? "not set up"
                             : !row.ready        ? "incomplete"
                                                 : "ready";
        out << padded(displayText(row.id), idWidth) << "  "
            << padded(displayText(row.type), typeWidth) << "  " << padded(status, 10) << "  "
            << displayText(row.name) << (row.shown ? "" : "  (hidden)") << '\n';
    }
}

int listAccounts(std::span<const std::string> arguments, CommandStreams streams) {
    if (!arguments.empty() &&
        (arguments[0] == "add" || arguments[0] == "reconnect" || arguments[0] == "remove")) {
        return runAccountSetupCommand(arguments[0], arguments.subspan(1), streams);
    }
    bool json = false;
    for (const auto& argument : arguments) {
        if (argument == "--json") {
            json = true;
        } else {
            throw UsageError("unknown option '" + argument + "'");
        }
    }
    CoordinatorSession session;
    session.loadAccounts();
    if (const auto& listError = session.viewModel().accountListError()) {
        streams.err << "brimvale-cli accounts: could not read the rclone accounts: "
                    << displayText(*listError) << '\n';
    }
    const auto rows = accountRows(session.viewModel());
    if (json) {
        auto list = nlohmann::json::array();
        for (const auto& row : rows) {
            list.push_back({{"id", row.id},
                            {"type", row.type},
                            {"name", row.name},
                            {"configured", row.configured},
                            {"ready", row.ready},
                            {"shown", row.shown}});
        }
        streams.out << list.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) << '\n';
        return exitSuccess;
    }
    printTable(rows, streams.out);
    return exitSuccess;
}

} // namespace

Command webConfigCommand() {
    return Command{.name = "web-config",
                   .summary = "Run rclone's configuration website on this computer",
                   .usage = "web-config",
                   .details =
                       "Starts rclone's own configuration website on 127.0.0.1 (no password:\n"
                       "only this computer reaches it), prints its address, opens it when\n"
                       "there is a desktop, and stops it on Ctrl-C.",
                   .run = runWebConfig};
}

Command accountsCommand() {
    return Command{
        .name = "accounts",
        .summary = "List the accounts Brimvale shows",
        .usage = "accounts [--json] | accounts add SERVICE [--name NAME] [--field KEY=VALUE]... |\n"
                 "       accounts reconnect ACCOUNT | accounts remove ACCOUNT [--yes]",
        .details =
            "The accounts of the sidebar, in its order: every rclone remote, then the\n"
            "local disk and Dropbox rows that are always there. STATUS is \"ready\",\n"
            "\"incomplete\" (its sign-in never finished; hidden in the sidebar) or \"not set\n"
            "up\" (a row waiting for an account; the local disk is always ready).\n"
            "\n"
            "  --json   one object per account: id, type, name, configured, ready, shown\n"
            "\n"
            "add SERVICE adds an account. sftp, ftp, s3, r2, gcs and azureblob take the\n"
            "fields of their form as options (a wrong or missing one is named, and nothing\n"
            "is written). The others (gdrive, dropbox, onedrive, box, mega or any rclone\n"
            "type) go through rclone's own questions; those that sign in through the browser\n"
            "print the sign-in address, and Ctrl-C gives up and leaves no half-made account.\n"
            "\n"
            "  --name NAME               the new account's name (default: the service's)\n"
            "  --field KEY=VALUE         a field, such as host=nas.local or bucket=photos\n"
            "  --field-from-env KEY=VAR  a field from the environment variable VAR\n"
            "  --field-from-stdin KEY    a field read from standard input (not echoed)\n"
            "\n"
            "reconnect signs ACCOUNT in again. remove deletes ACCOUNT with its saved scans,\n"
            "after asking (--yes, -y: without asking).",
        .run = listAccounts};
}

} // namespace brimvale::cli
