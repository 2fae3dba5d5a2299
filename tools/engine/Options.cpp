#include "engine/Engine.h"

#include <CLI/CLI.hpp>

namespace mirel {

bool isNats(const std::string& url) {
    return url.starts_with("nats://") || url.starts_with("tls://");
}

CLI::App* addNatsOptions(CLI::App& app, NatsConnectionOptions& options) {
    CLI::App* const group = app.add_option_group("For nats:// and tls://");
    group->add_option("--user", options.user, "The user's name on the NATS server");
    group->add_option("--password-file", options.passwordFile,
                      "File whose first line is the user's password");
    group->add_option("--credentials", options.credentialsFile,
                      "The user's credentials file, as the engine's own tools make it");
    group->add_option("--tls-authorities", options.authoritiesFile,
                      "Certificates of the authorities to trust; default: the system's");
    group->add_option("--tls-certificate", options.certificateFile,
                      "Your own certificate, for a server that asks for it");
    group->add_option("--tls-key", options.keyFile, "Its key");
    return group;
}

void checkNatsOptions(const CLI::App& app, const CLI::App& group, const std::string& url,
                      const std::vector<std::string>& others) {
    if (isNats(url)) {
        for (const std::string& name : others)
            if (app.get_option(name)->count() > 0)
                throw CLI::ValidationError(name, "is for channels over ipc:// and tcp:// only");
        return;
    }
    for (const CLI::Option* option : group.get_options())
        if (option->count() > 0)
            throw CLI::ValidationError(option->get_name(),
                                       "is for channels over NATS only (nats:// or tls://)");
}

} // namespace mirel
