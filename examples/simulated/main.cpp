// A service with a fault that testing on real threads hardly ever shows, and the test that finds
// it: the service runs on the real executor and pool, in every order of steps that matters.

#include "framework/Executable.h"
#include "simulated/Exploration.h"
#include "simulated/SimulatedHost.h"
#include "simulated/Simulation.h"

#include <chrono>
#include <iostream>
#include <mutex>
#include <string>
#include <thread>

using namespace mirel::simulated;

/// Sells the seats of one show. Requests of different customers run at the same time.
class Seats : public Executable {
public:
    /// `careless`: looks for a free seat, and takes it later.
    Seats(int free, bool careless) : m_careless(careless), m_free(free) {}

    std::string book() {
        if (m_careless) {
            if (free() == 0)
                return "sold out";
            pay();
            std::lock_guard lock(m_mutex);
            --m_free;
            return "booked";
        }
        {
            std::lock_guard lock(m_mutex);
            if (m_free == 0)
                return "sold out";
            --m_free; // reserved, until it is paid for
        }
        pay();
        return "booked";
    }

    int free() {
        std::lock_guard lock(m_mutex);
        return m_free;
    }

    void timerEvent(int) override {}

private:
    /// Takes its time, which costs nothing in a simulation.
    static void pay() { std::this_thread::sleep_for(std::chrono::seconds(2)); }

    const bool m_careless;
    std::mutex m_mutex;
    int m_free; ///< guarded by m_mutex
};

/// Two customers want the last seat.
Exploration sellTheLastSeat(bool careless) {
    return explore({.preemptions = 1}, [careless] {
        Seats seats(1, careless);
        SimulatedHost host(seats, "Seats");
        host.context().addHandler<Seats>("Seats", "text",
                                         [](Seats& s, std::string_view) { return s.book(); });
        host.send("anna", "");
        host.send("bert", "");
        host.finish();
        require(seats.free() == 0, "seats left: " + std::to_string(seats.free()));
    });
}

int main() {
    const Exploration careless = sellTheLastSeat(true);
    std::cout << "Looks first, takes later: " << careless << "\n\n";
    const Exploration careful = sellTheLastSeat(false);
    std::cout << "Takes at once: " << careful << "\n";
    return !careless && careful ? 0 : 1;
}
