#include "options/TransportOptions.h"

#include <CLI/CLI.hpp>
#include <type_traits>

namespace mirel {

namespace {

using std::chrono::milliseconds;

template <typename Number>
void limit(CLI::Option& option, const TransportOption& declared) {
    if (const auto* range = std::get_if<TransportOption::Range>(&declared.values))
        option.check(
            CLI::Range(static_cast<Number>(range->least), static_cast<Number>(range->most)));
    else if (const auto* choice = std::get_if<TransportOption::OneOf>(&declared.values))
        option.check(CLI::IsMember(choice->numbers));
}

} // namespace

TransportOptions::TransportOptions(CLI::App& app, const Transports& transports, Side side)
    : m_transports(transports) {
    for (const auto& transport : transports.all()) {
        std::string group = "For " + transport->schemes();
        if (!transport->built())
            group += "; " + transport->whyLeftOut();
        for (const TransportOption& declared : (transport.get()->*side)()) {
            CLI::Option* const option = add(app, declared)->group(group);
            if (const auto* text = std::get_if<TransportOption::Text>(&declared.values))
                option->type_name(text->word);
            m_options.emplace_back(transport.get(), option);
        }
    }
}

CLI::Option* TransportOptions::add(CLI::App& app, const TransportOption& declared) {
    const auto addTo = [&](const auto& target) {
        using Target = std::decay_t<decltype(target)>;
        using Value = std::remove_pointer_t<Target>;
        const auto& [name, ignored, help, values] = declared;
        CLI::Option* option = nullptr;
        if constexpr (std::is_same_v<Target, TransportOption::Action>) {
            option = app.add_option_function<std::string>(
                name,
                [this, target](const std::string& value) {
                    m_instead = [target, value] { return target(value); };
                },
                help);
        } else if constexpr (std::is_same_v<Value, bool>) {
            option = app.add_flag(name, *target, help);
        } else if constexpr (std::is_same_v<Value, milliseconds>) {
            option = app.add_option_function<int>(
                name, [target](int ms) { *target = milliseconds(ms); }, help);
            option->default_str(std::to_string(target->count()));
            limit<int>(*option, declared);
        } else {
            option = app.add_option(name, *target, help);
            if constexpr (std::is_integral_v<Value>) {
                option->capture_default_str();
                limit<Value>(*option, declared);
            }
        }
        return option;
    };
    return std::visit(addTo, declared.target);
}

void TransportOptions::check(const std::string& url) const {
    const Transport& chosen = m_transports.of(url);
    for (const auto& [transport, option] : m_options)
        if (transport != &chosen && option->count() > 0)
            throw CLI::ValidationError(option->get_name(),
                                       "is for channels over " + transport->schemes() + " only");
}

} // namespace mirel
