#pragma once

#include <cstddef>
#include <cstdint>
#include <new>
#include <utility>

/// Room within an object for what the provider of the framework keeps there. Only the provider
/// knows what that is: it makes it in each constructor of the object and destroys it in the
/// destructor.
template <std::size_t bytes>
class Opaque {
public:
    Opaque() = default;
    Opaque(const Opaque&) = delete;
    Opaque& operator=(const Opaque&) = delete;

    template <typename State, typename... Arguments>
    State& make(Arguments&&... arguments) {
        static_assert(sizeof(State) <= bytes && alignof(State) <= alignof(std::uint64_t));
        return *new (m_room) State{std::forward<Arguments>(arguments)...};
    }

    template <typename State>
    State& as() {
        return *std::launder(reinterpret_cast<State*>(m_room));
    }

    template <typename State>
    const State& as() const {
        return *std::launder(reinterpret_cast<const State*>(m_room));
    }

    template <typename State>
    void destroy() {
        as<State>().~State();
    }

private:
    alignas(std::uint64_t) std::byte m_room[bytes];
};
