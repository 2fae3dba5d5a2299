#include "testkit/demo/NatsDemo.h"

#include "testkit/demo/checkAccount.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <stdexcept>

namespace mirel {

namespace fs = std::filesystem;

namespace {

constexpr long kSources = 64;
constexpr std::size_t kPartitions = 4;
constexpr long kUnacknowledged = 256; ///< of each partition, at most: mirel-host's default
constexpr long kTrial = 3000;         ///< requests
constexpr long kSeconds = 8;          ///< that the load would last if nobody was killed
constexpr double kStep = 0.1;         ///< seconds, of mirel-call's timeline

void say(const std::string& text) { std::cout << text << std::endl; }

/// With commas between the thousands.
std::string grouped(long number) {
    return number < 1000
               ? std::to_string(number)
               : grouped(number / 1000) + "," + std::to_string(1000 + number % 1000).substr(1);
}

void require(bool good, const std::string& what) {
    if (!good)
        throw std::runtime_error(what);
}

double now() {
    return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch())
        .count();
}

std::size_t occurrences(const std::string& text, const std::string& part) {
    std::size_t count = 0;
    for (auto at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        ++count;
    return count;
}

/// The timeline in what mirel-call has written so far.
std::vector<std::pair<double, long>> timeline(const std::string& output) {
    std::vector<std::pair<double, long>> result;
    std::istringstream lines(output);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        double seconds = 0;
        char comma = 0;
        long answers = 0;
        if (words >> seconds >> comma >> answers)
            result.emplace_back(seconds, answers);
    }
    return result;
}

long sum(const std::vector<std::pair<double, long>>& answers) {
    long result = 0;
    for (const auto& [seconds, count] : answers)
        result += count;
    return result;
}

std::string emptied(const std::string& folder) {
    fs::remove_all(folder);
    fs::create_directories(folder + "/book");
    return folder;
}

std::string account(long number) { return "account-" + std::to_string(number); }

} // namespace

NatsDemo::NatsDemo(const std::string& folder) : m_folder(emptied(folder)), m_cluster(m_folder) {
    setenv("LEDGER_BOOK", (m_folder + "/book").c_str(), 1);
}

void NatsDemo::run() {
    say("1. Three NATS servers make a cluster, which keeps each request three times. Two hosts");
    say("   share the " + std::to_string(kPartitions) +
        " partitions of a service whose accounts are files, a line a run.");
    m_cluster.waitUntilReady();
    startHost("host A");
    startHost("host B");
    const long rate = chooseSize();
    say("2. " + std::to_string(kSources) + " sources post the numbers 1 to " + grouped(m_ofEach) +
        " each to their accounts.");
    say("   (A trial made " + grouped(rate) + " answers/s.)");
    say("   Meanwhile:");
    runLoad();
    say("     all " + grouped(kSources * m_ofEach) +
        " requests are answered, each source's in order;");
    std::cout << std::fixed << std::setprecision(1);
    std::cout << "     the longest pause was " << pause() << " s" << std::endl;
    say("3. The accounts' files: every posting is there, in order; only a host that took over may");
    say("   have run again what its predecessor had not acknowledged, and that counts once.");
    say("     all are right; " + std::to_string(checkFiles()) + " postings ran once more");
    say("4. The host that is left tells every account's balance, the sum of its numbers.");
    say("     all " + std::to_string(kSources) + " are " + grouped(checkBalances()));
    stopHosts();
    writeRun();
}

void NatsDemo::startHost(const std::string& name) {
    const std::string partitions = std::to_string(kPartitions);
    m_hosts.push_back({name, std::make_unique<Process>(Arguments{
                                 MIREL_HOST, "--library", LEDGER_LIBRARY, "--creator", "createBook",
                                 "--interface", "Book", "--channel", m_cluster.url("book"),
                                 "--patience", "20000", "--partitions", partitions, "--replicas",
                                 "3", "--lease", "2000", "--log", "3,NatsLeases=4"})});
    Process& host = *m_hosts.back().process;
    const auto hasItsShare = [share = kPartitions / m_hosts.size()](const std::string&,
                                                                    const std::string& errors) {
        return occurrences(errors, "is served here now") >= share;
    };
    require(host.waitFor("serving") && host.waitUntil(hasItsShare), name + " does not serve");
}

void NatsDemo::stopHosts() {
    for (Host& host : m_hosts) {
        if (host.killed != 0)
            continue;
        const auto result = host.process->stop();
        require(result.status == 0, host.name + " exited with " + std::to_string(result.status));
        host.log = result.errors;
    }
}

Arguments NatsDemo::call(const Arguments& more) const {
    return joined({MIREL_CALL, "--channel", m_cluster.url("book"), "--deadline", "60000"}, more);
}

Arguments NatsDemo::load(const std::string& source, long requests, const Arguments& more) const {
    return call(joined({"--load", std::to_string(requests), "--sources", std::to_string(kSources),
                        "--source", source, "--interface", "Book", "--protocol", "text", "--data",
                        "post {source} {n}"},
                       more));
}

long NatsDemo::chooseSize() {
    const auto trial = Process::run(load("trial", kTrial));
    require(trial.status == 0, "the trial did not go through\n" + trial.output + trial.errors);
    const std::string heading = "throughput: ";
    const long rate = std::stol(trial.output.substr(trial.output.find(heading) + heading.size()));
    m_ofEach = std::max(50L, rate * kSeconds / kSources);
    return rate;
}

void NatsDemo::runLoad() {
    const long requests = m_ofEach * kSources;
    const std::pair<double, void (NatsDemo::*)()> plan[] = {{0.25, &NatsDemo::killServer},
                                                            {0.55, &NatsDemo::killHost},
                                                            {0.8, &NatsDemo::restartServer}};
    Process process(load("account", requests, {"--timeline", "/dev/stdout"}));
    require(process.waitFor("seconds,answers"), "the load does not start");
    m_start = now();
    for (const auto& [share, strike] : plan) {
        const double answers = share * static_cast<double>(requests);
        const auto reached = [answers](const std::string& output, const std::string&) {
            return static_cast<double>(sum(timeline(output))) >= answers;
        };
        require(process.waitUntil(reached), "the load ended before all was done to the service");
        (this->*strike)();
    }
    const auto result = process.finish();
    require(result.status == 0, "the load did not go through\n" + result.output + result.errors);
    m_answers = timeline(result.output);
    require(sum(m_answers) == requests, "the timeline tells of " + std::to_string(sum(m_answers)) +
                                            " answers instead of " + std::to_string(requests));
}

void NatsDemo::killServer() {
    m_killed = &m_cluster.streamLeader("book");
    mark(m_killed->name() + " killed");
    m_killed->kill();
    say("     SIGKILL to " + m_killed->name() + ", which leads the stream of requests");
}

void NatsDemo::killHost() {
    Host& host = m_hosts.front();
    host.killed = mark(host.name + " killed");
    host.log = host.process->stop(SIGKILL).errors;
    say("     SIGKILL to " + host.name);
}

void NatsDemo::restartServer() {
    mark(m_killed->name() + " back");
    m_killed->start();
    say("     " + m_killed->name() + " is started again");
}

double NatsDemo::mark(const std::string& text) { return m_marks.emplace_back(now(), text).first; }

double NatsDemo::pause() const {
    double longest = 0, last = 0;
    for (const auto& [seconds, count] : m_answers) {
        if (count == 0)
            continue;
        longest = std::max(longest, seconds - last - kStep);
        last = seconds;
    }
    return longest;
}

long NatsDemo::checkFiles() const {
    std::set<pid_t> hosts;
    for (const Host& host : m_hosts)
        hosts.insert(host.process->pid());
    long repeated = 0, turns = 0;
    for (long i = 1; i <= kSources; ++i) {
        const auto runs = checkAccount(m_folder + "/book/" + account(i), m_ofEach, hosts);
        repeated += runs.repeated;
        turns = std::max(turns, runs.turns);
    }
    require(turns > 1, "no account has changed its host");
    require(repeated <= (turns - 1) * static_cast<long>(kPartitions) * kUnacknowledged,
            std::to_string(repeated) + " postings ran once more, more than can be unacknowledged");
    return repeated;
}

long NatsDemo::checkBalances() const {
    const long balance = m_ofEach * (m_ofEach + 1) / 2;
    std::string statements;
    for (long i = 1; i <= kSources; ++i)
        statements += nlohmann::json{{"kind", "request"},
                                     {"source", account(i)},
                                     {"interface", "Book"},
                                     {"protocol", "text"},
                                     {"data", "statement " + account(i)}}
                          .dump() +
                      "\n";
    const auto result = Process::run(call({"--input", "-"}), statements);
    for (long i = 1; i <= kSources; ++i) {
        const std::string line =
            account(i) + ": " + account(i) + " " + std::to_string(balance) + "\n";
        require(("\n" + result.output).find("\n" + line) != std::string::npos,
                account(i) + " does not hold " + std::to_string(balance) + "\n" + result.output +
                    result.errors);
    }
    return balance;
}

void NatsDemo::writeRun() const {
    nlohmann::json run{
        {"start", m_start}, {"step", kStep}, {"answers", m_answers}, {"marks", m_marks}};
    for (const Host& host : m_hosts)
        run["hosts"][host.name] = {{"log", host.log}, {"killed", host.killed}};
    std::ofstream(m_folder + "/run.json") << run;
}

} // namespace mirel
