// fuzz_gateways: runs every implemented gateway (from the gateway list) on its
// valid template calls, then on mutations of them, each batch of calls in a
// child process with a time limit per call. A call passes when it ends in a
// result or in the host's error, allocation failure or interruption, leaves
// no array or scratch behind and calls no host-thread service from a worker.
// A child that dies, hangs or reports anything else names its call, which is
// run again alone to confirm it.
//
//   fuzz_gateways [--calls N] [--seed S] [--jobs J] [--timeout SECONDS]
//                 [--gateway NAME]... [--replay NAME INDEX]
// ZV_FUZZ_CALLS and ZV_FUZZ_SEED set the defaults of --calls and --seed.
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <map>
#include <set>
#include <string>
#include <thread>
#include <typeinfo>
#include <vector>

#include "frame/gateway_list.hpp"
#include "fuzz/fuzz.hpp"
#include "fuzz/mutations.hpp"
#include "gateway_declarations.hpp"

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define ZV_FUZZ_SANITIZED 1
// Allocations the host would refuse fail instead of aborting the process.
extern "C" const char* __asan_default_options() { return "allocator_may_return_null=1:max_allocation_size_mb=3072"; }
#else
#define ZV_FUZZ_SANITIZED 0
#endif

namespace zvfuzz {

std::map<std::string, TemplateSet>& registry() {
    static std::map<std::string, TemplateSet> r;
    return r;
}

Owned logicals(std::initializer_list<bool> values, bool column) {
    Owned a(column ? ndCreateLogicalMatrix(values.size(), 1) : ndCreateLogicalMatrix(1, values.size()));
    size_t k = 0;
    for (bool v : values) ndGetLogicals(a.get())[k++] = v;
    return a;
}

Owned cell(std::vector<Owned> elements) {
    Owned c(ndCreateCellMatrix(1, elements.size()));
    for (size_t k = 0; k < elements.size(); ++k) ndSetCell(c.get(), k, elements[k].release());
    return c;
}

Owned sparse(size_t m, size_t n, const std::vector<double>& values) {
    size_t nnz = 0;
    for (size_t k = 0; k < m * n; ++k) nnz += values[k] != 0;
    Owned s(zvhost::createSparse(m, n, nnz));
    double* v = static_cast<double*>(ndGetData(s.get()));
    size_t* rows = ndGetRowIndices(s.get());
    size_t* starts = ndGetColumnStarts(s.get());
    size_t e = 0;
    for (size_t j = 0; j < n; ++j) {
        starts[j] = e;
        for (size_t i = 0; i < m; ++i)
            if (values[i + j * m] != 0) rows[e] = i, v[e++] = values[i + j * m];
    }
    starts[n] = e;
    return s;
}

namespace {

// A single request beyond this fails as the host's allocation failure.
constexpr size_t kRequestLimit = size_t(1) << 30;
// The address space of a child, so that the library's own allocations fail
// the same way (sanitizers reserve far more, and are left alone).
constexpr rlim_t kAddressSpace = rlim_t(8) << 30;
constexpr size_t kMaxText = 900;

enum class Outcome : uint8_t { Result, Identifier, AllocationFailure, Interruption, Foreign, Leak, ThreadViolation };

bool isFault(Outcome o) { return o == Outcome::Foreign || o == Outcome::Leak || o == Outcome::ThreadViolation; }

struct Options {
    uint64_t seed = 1;
    long calls = 300;
    int jobs = 2;
    double timeout = ZV_FUZZ_SANITIZED ? 60 : 10;
    size_t batch = 250;
    std::set<std::string> only;
    std::string replayGateway;
    long replayIndex = -1;
};

uint64_t mix(uint64_t h, uint64_t v) {
    h ^= v + 0x9E3779B97F4A7C15ull + (h << 6) + (h >> 2);
    return h * 0xBF58476D1CE4E5B9ull;
}
uint64_t callSeed(uint64_t seed, const std::string& gateway, long index) {
    uint64_t h = mix(0x5EED, seed);
    for (char c : gateway) h = mix(h, uint64_t(uint8_t(c)));
    return mix(h, uint64_t(index));
}

// Call `index` of a gateway: the templates as they are first, then mutations.
struct PlannedCall {
    Call call;
    Mutation mutation;
    std::string templateName;
};
PlannedCall plan(const TemplateSet& set, const std::string& gateway, long index, uint64_t seed) {
    const auto& templates = set.all();
    std::mt19937_64 rng(callSeed(seed, gateway, index));
    PlannedCall p;
    const size_t t = size_t(index) < templates.size() ? size_t(index) : size_t(rng() % templates.size());
    p.templateName = templates[t].name;
    p.call.numOutputs = templates[t].numOutputs;
    p.call.inputs = templates[t].build();
    if (size_t(index) >= templates.size()) p.mutation = mutate(p.call, rng);
    return p;
}

struct Ran {
    Outcome outcome;
    std::string text;
};

Ran runCall(zvhost::Gateway f, PlannedCall& p, uint64_t streamSeed) {
    zvhost::seedDefaultStream(uint32_t(streamSeed));
    std::vector<const ndArray*> in;
    for (const auto& a : p.call.inputs) in.push_back(a.get());
    const zvhost::Usage before = zvhost::usage();
    const long violations = zvhost::threadViolations();
    if (p.mutation.interruptAtPoll > 0) zvhost::interruptAfterPolls(p.mutation.interruptAtPoll);
    if (p.mutation.failAllocationAt > 0) zvhost::failAllocationAt(p.mutation.failAllocationAt);
    Ran ran{Outcome::Result, ""};
    try {
        std::vector<ndArray*> out = zvhost::callGateway(f, p.call.numOutputs, in);
        for (ndArray* a : out) ndDestroyArray(a);
    } catch (const zvhost::Interrupted&) {
        ran = {Outcome::Interruption, "zvhost:Interrupted"};
    } catch (const bedrock::core::except::IMsgIDException& e) {
        ran = {Outcome::Identifier, e.GetID()};
    } catch (const std::bad_alloc&) {
        ran = {Outcome::AllocationFailure, "allocation failure"};
    } catch (const bedrock::ustring::CtypeExceptionBase& e) {
        ran = {Outcome::Identifier, "host text error"};
    } catch (const std::exception& e) {
        ran = {Outcome::Foreign, std::string("foreign exception ") + typeid(e).name() + ": " + e.what()};
    } catch (...) {
        ran = {Outcome::Foreign, "foreign exception of unknown type"};
    }
    zvhost::failAllocationAt(0);
    zvhost::clearInterrupt();
    const zvhost::Usage after = zvhost::usage();
    if (!isFault(ran.outcome) && (after.liveArrays != before.liveArrays || after.liveScratch != before.liveScratch ||
                                  after.liveWorkerScratch != before.liveWorkerScratch)) {
        ran = {Outcome::Leak, "leaked " + std::to_string(after.liveArrays - before.liveArrays) + " arrays, " +
                                  std::to_string(after.liveScratch - before.liveScratch) + " scratch, " +
                                  std::to_string(after.liveWorkerScratch - before.liveWorkerScratch) +
                                  " worker scratch blocks (after: " + ran.text + ")"};
    }
    if (!isFault(ran.outcome) && zvhost::threadViolations() != violations)
        ran = {Outcome::ThreadViolation, "a host-thread service was called from a worker"};
    return ran;
}

// ---- child ----------------------------------------------------------------------

void writeAll(int fd, const void* data, size_t n) {
    const char* p = static_cast<const char*>(data);
    while (n > 0) {
        const ssize_t w = write(fd, p, n);
        if (w <= 0) _exit(3);
        p += w;
        n -= size_t(w);
    }
}

// Messages to the parent: 'S' (a call starts) or 'E' (it ended), the index,
// the outcome, and a text.
void send(int fd, char type, long index, Outcome outcome, const std::string& text) {
    const uint16_t length = uint16_t(std::min(text.size(), kMaxText));
    char head[1 + sizeof(long) + 1 + sizeof(uint16_t)];
    head[0] = type;
    std::memcpy(head + 1, &index, sizeof(long));
    head[1 + sizeof(long)] = char(outcome);
    std::memcpy(head + 2 + sizeof(long), &length, sizeof length);
    writeAll(fd, head, sizeof head);
    writeAll(fd, text.data(), length);
}

void prepareProcess() {
    zvhost::setStrictThreadChecks(true);
    zvhost::limitRequestBytes(kRequestLimit);
    zvhost::setGatewayResolver([](std::string_view name) { return zv::generated::linkedGateway(name); });
#if !ZV_FUZZ_SANITIZED
    const rlimit limit{kAddressSpace, kAddressSpace};
    setrlimit(RLIMIT_AS, &limit);
#endif
}

[[noreturn]] void runChild(int fd, const Options& o, const std::string& gateway, long begin, long end) {
    prepareProcess();
    const TemplateSet& set = registry().at(gateway);
    const zvhost::Gateway f = zv::generated::linkedGateway(gateway);
    for (long i = begin; i < end; ++i) {
        PlannedCall p = plan(set, gateway, i, o.seed);
        const std::string head = p.templateName + " | " + kindName(p.mutation.kind) + " | " + p.mutation.description;
        send(fd, 'S', i, Outcome::Result, head);
        const Ran ran = runCall(f, p, callSeed(o.seed, gateway, i));
        send(fd, 'E', i, ran.outcome, ran.text);
    }
    close(fd);
    std::exit(0);
}

// ---- parent ---------------------------------------------------------------------

struct Failure {
    std::string gateway;
    long index;
    std::string what;
    std::string call;
    bool confirmedAlone;
};

struct GatewayStats {
    long calls = 0;
    std::map<Outcome, long> outcomes;
    std::set<std::string> identifiers;
};

struct Task {
    std::string gateway;
    long begin, end;
    bool confirming;  // a single call run again alone after a failure in a batch
};

struct Child {
    pid_t pid;
    int fd;
    std::string errorsPath;
    Task task;
    std::string buffer;
    long inFlight = -1;
    std::string inFlightCall;
    std::chrono::steady_clock::time_point started;
    double hungAfter = 0;  // seconds, when the call in flight was stopped
};

std::string readTail(const std::string& path, size_t limit = 1500) {
    FILE* f = std::fopen(path.c_str(), "rb");
    if (!f) return "";
    std::string s;
    char buf[4096];
    size_t n;
    while ((n = std::fread(buf, 1, sizeof buf, f)) > 0) s.append(buf, n);
    std::fclose(f);
    return s.size() > limit ? "..." + s.substr(s.size() - limit) : s;
}

// An address sanitizer build aborts where the host would have failed an
// allocation; that is the host's allocation failure, not a fault.
bool sanitizerOutOfMemory(const std::string& errors) {
    return errors.find("AddressSanitizer: out of memory") != std::string::npos ||
           errors.find("allocation-size-too-big") != std::string::npos ||
           errors.find("requested allocation size") != std::string::npos;
}

class Runner {
public:
    explicit Runner(const Options& o) : o_(o) {}

    int run(const std::vector<std::string>& gateways) {
        for (const auto& g : gateways) {
            const long total = long(registry().at(g).all().size()) + o_.calls;
            for (long b = 0; b < total; b += long(o_.batch)) tasks_.push_back({g, b, std::min(total, b + long(o_.batch)), false});
        }
        while (!tasks_.empty() || !children_.empty()) {
            while (!tasks_.empty() && children_.size() < size_t(std::max(o_.jobs, 1))) {
                start(tasks_.front());
                tasks_.pop_front();
            }
            waitForProgress();
        }
        return report(gateways);
    }

private:
    void start(const Task& t) {
        int fds[2];
        if (pipe(fds) != 0) std::perror("pipe"), std::exit(2);
        char path[] = "/tmp/zvfuzz-stderr-XXXXXX";
        const int errFd = mkstemp(path);
        std::fflush(nullptr);
        const pid_t pid = fork();
        if (pid == 0) {
            close(fds[0]);
            const int devNull = open("/dev/null", O_WRONLY);
            dup2(devNull, STDOUT_FILENO);
            dup2(errFd, STDERR_FILENO);
            runChild(fds[1], o_, t.gateway, t.begin, t.end);
        }
        close(fds[1]);
        close(errFd);
        children_.push_back({pid, fds[0], path, t, "", -1, "", std::chrono::steady_clock::now()});
    }

    void waitForProgress() {
        std::vector<pollfd> pfds;
        for (auto& c : children_) pfds.push_back({c.fd, POLLIN, 0});
        poll(pfds.data(), pfds.size(), 200);
        const auto now = std::chrono::steady_clock::now();
        for (size_t k = 0; k < children_.size();) {
            Child& c = children_[k];
            bool finished = false;
            if (pfds[k].revents) {
                char buf[65536];
                const ssize_t n = read(c.fd, buf, sizeof buf);
                if (n > 0) {
                    c.buffer.append(buf, size_t(n));
                    consume(c);
                } else {
                    finished = true;
                }
            }
            if (!finished && c.inFlight >= 0 &&
                std::chrono::duration<double>(now - c.started).count() > o_.timeout) {
                kill(c.pid, SIGKILL);
                finished = true;
                // Whatever the child wrote before it was stopped.
                char buf[65536];
                ssize_t n;
                while ((n = read(c.fd, buf, sizeof buf)) > 0) c.buffer.append(buf, size_t(n));
                consume(c);
                if (c.inFlight >= 0) c.hungAfter = o_.timeout;
            }
            if (finished) {
                end(c);
                children_.erase(children_.begin() + long(k));
                pfds.erase(pfds.begin() + long(k));
            } else {
                ++k;
            }
        }
    }

    void consume(Child& c) {
        constexpr size_t kHead = 1 + sizeof(long) + 1 + sizeof(uint16_t);
        while (c.buffer.size() >= kHead) {
            uint16_t length;
            std::memcpy(&length, c.buffer.data() + 2 + sizeof(long), sizeof length);
            if (c.buffer.size() < kHead + length) return;
            long index;
            std::memcpy(&index, c.buffer.data() + 1, sizeof(long));
            const char type = c.buffer[0];
            const Outcome outcome = Outcome(c.buffer[1 + sizeof(long)]);
            const std::string text = c.buffer.substr(kHead, length);
            c.buffer.erase(0, kHead + length);
            if (type == 'S') {
                if (!c.task.confirming) ++stats_[c.task.gateway].calls;
                c.inFlight = index;
                c.inFlightCall = text;
                c.started = std::chrono::steady_clock::now();
            } else {
                c.inFlight = -1;
                ended(c, index, outcome, text);
            }
        }
    }

    void ended(const Child& c, long index, Outcome outcome, const std::string& text) {
        GatewayStats& s = stats_[c.task.gateway];
        if (!c.task.confirming) {
            ++s.outcomes[outcome];
            if (outcome == Outcome::Identifier) s.identifiers.insert(text);
        }
        const long templates = long(registry().at(c.task.gateway).all().size());
        if (isFault(outcome)) {
            addFailure(c, index, text, c.inFlightCall);
        } else if (index < templates && outcome != Outcome::Result) {
            failures_.push_back({c.task.gateway, index, "the template is not a valid call: it raised " + text,
                                 c.inFlightCall, true});
        }
    }

    void addFailure(const Child& c, long index, const std::string& what, const std::string& call) {
        if (c.task.confirming) {
            for (auto& f : failures_)
                if (f.gateway == c.task.gateway && f.index == index) f.confirmedAlone = true;
            return;
        }
        failures_.push_back({c.task.gateway, index, what, call, false});
    }

    void end(Child& c) {
        close(c.fd);
        int status = 0;
        waitpid(c.pid, &status, 0);
        const std::string errors = readTail(c.errorsPath);
        unlink(c.errorsPath.c_str());
        const bool clean = WIFEXITED(status) && WEXITSTATUS(status) == 0 && c.inFlight < 0 && c.hungAfter == 0;
        if (clean) return;
        const long at = c.inFlight;
        std::string what;
        if (c.hungAfter > 0) {
            what = "no result within " + std::to_string(int(c.hungAfter)) + " s (hang)";
        } else if (WIFSIGNALED(status)) {
            what = std::string("killed by signal ") + strsignal(WTERMSIG(status));
        } else {
            what = "exited with status " + std::to_string(WEXITSTATUS(status));
        }
        if (sanitizerOutOfMemory(errors)) {
            ++stats_[c.task.gateway].outcomes[Outcome::AllocationFailure];
        } else if (at >= 0) {
            addFailure(c, at, what + (errors.empty() ? "" : "\n" + errors), c.inFlightCall);
        } else {
            failures_.push_back({c.task.gateway, c.task.end - 1, what + " after its last call\n" + errors, "", false});
        }
        if (at < 0) return;
        // Run the culprit alone to confirm it, and the rest of the batch on.
        if (!c.task.confirming && !sanitizerOutOfMemory(errors)) tasks_.push_front({c.task.gateway, at, at + 1, true});
        if (at + 1 < c.task.end) tasks_.push_back({c.task.gateway, at + 1, c.task.end, c.task.confirming});
    }

    int report(const std::vector<std::string>& gateways) {
        std::printf("%-36s %7s %7s %7s %6s %6s %6s\n", "gateway", "calls", "result", "ident.", "alloc", "intr.",
                    "FAULTS");
        long faults = 0, calls = 0;
        for (const auto& g : gateways) {
            GatewayStats& s = stats_[g];
            long gFaults = 0;
            for (const auto& f : failures_) gFaults += f.gateway == g;
            calls += s.calls;
            faults += gFaults;
            std::printf("%-36s %7ld %7ld %7ld %6ld %6ld %6ld\n", g.c_str(), s.calls, s.outcomes[Outcome::Result],
                        s.outcomes[Outcome::Identifier], s.outcomes[Outcome::AllocationFailure],
                        s.outcomes[Outcome::Interruption], gFaults);
        }
        std::printf("%ld calls (seed %llu), %ld failed\n", calls, (unsigned long long)o_.seed, faults);
        std::map<std::string, long> byKind;
        for (const auto& f : failures_) {
            const size_t a = f.call.find(" | "), b = f.call.find(" | ", a + 3);
            if (a != std::string::npos && b != std::string::npos) ++byKind[f.call.substr(a + 3, b - a - 3)];
        }
        for (const auto& [kind, n] : byKind) std::printf("  faults found by \"%s\" mutations: %ld\n", kind.c_str(), n);
        for (const auto& f : failures_) {
            std::printf("\nFAIL %s call %ld%s: %s\n  call: %s\n  replay: fuzz_gateways --seed %llu --replay '%s' %ld\n",
                        f.gateway.c_str(), f.index, f.confirmedAlone ? " (fails alone)" : "", f.what.c_str(),
                        f.call.c_str(), (unsigned long long)o_.seed, f.gateway.c_str(), f.index);
        }
        return faults == 0 ? 0 : 1;
    }

    const Options& o_;
    std::deque<Task> tasks_;
    std::vector<Child> children_;
    std::map<std::string, GatewayStats> stats_;
    std::vector<Failure> failures_;
};

int replay(const Options& o) {
    prepareProcess();
    const auto it = registry().find(o.replayGateway);
    if (it == registry().end()) return std::fprintf(stderr, "no templates for %s\n", o.replayGateway.c_str()), 2;
    PlannedCall p = plan(it->second, o.replayGateway, o.replayIndex, o.seed);
    std::printf("%s call %ld: template \"%s\", %s: %s\n", o.replayGateway.c_str(), o.replayIndex,
                p.templateName.c_str(), kindName(p.mutation.kind), p.mutation.description.c_str());
    std::fflush(stdout);
    const Ran ran = runCall(zv::generated::linkedGateway(o.replayGateway), p, callSeed(o.seed, o.replayGateway, o.replayIndex));
    std::printf("outcome %d: %s\n", int(ran.outcome), ran.text.c_str());
    return isFault(ran.outcome) ? 1 : 0;
}

}  // namespace
}  // namespace zvfuzz

int main(int argc, char** argv) {
    using namespace zvfuzz;
    Options o;
    if (const char* v = std::getenv("ZV_FUZZ_CALLS")) o.calls = std::atol(v);
    if (const char* v = std::getenv("ZV_FUZZ_SEED")) o.seed = std::strtoull(v, nullptr, 10);
    o.jobs = int(std::max(1u, std::thread::hardware_concurrency()));
    for (int k = 1; k < argc; ++k) {
        const std::string a = argv[k];
        auto next = [&]() -> std::string {
            if (k + 1 >= argc) std::fprintf(stderr, "%s needs a value\n", a.c_str()), std::exit(2);
            return argv[++k];
        };
        if (a == "--calls") o.calls = std::atol(next().c_str());
        else if (a == "--seed") o.seed = std::strtoull(next().c_str(), nullptr, 10);
        else if (a == "--jobs") o.jobs = std::atoi(next().c_str());
        else if (a == "--timeout") o.timeout = std::atof(next().c_str());
        else if (a == "--gateway") o.only.insert(next());
        else if (a == "--replay") o.replayGateway = next(), o.replayIndex = std::atol(next().c_str());
        else return std::fprintf(stderr, "unknown argument %s\n", a.c_str()), 2;
    }
    if (!o.replayGateway.empty()) return replay(o);

    // Every implemented gateway must have templates, and every template set
    // must name an implemented gateway.
    int problems = 0;
    std::vector<std::string> gateways;
    for (const auto& g : zv::frame::kGateways) {
        if (!g.implemented) continue;
        if (!o.only.empty() && !o.only.count(g.name)) continue;
        if (!registry().count(g.name) || registry()[g.name].all().empty()) {
            std::printf("FAIL %s has no fuzz templates\n", g.name);
            ++problems;
        } else {
            gateways.push_back(g.name);
        }
    }
    for (const auto& [name, set] : registry()) {
        if (!zv::generated::linkedGateway(name)) {
            std::printf("FAIL templates for %s, which is not an implemented gateway\n", name.c_str());
            ++problems;
        }
    }
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    const int rc = Runner(o).run(gateways);
    return problems ? 1 : rc;
}
