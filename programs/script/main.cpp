// Runs scripts of SQL as the server's command-line client does; see docs/kestro-script.md.

#include "Program.h"
#include "Progress.h"

#include <Kestro/Database/Connection.h>
#include <Kestro/Database/Script.h>

#include <atomic>
#include <csignal>
#include <filesystem>
#include <getopt.h>
#include <optional>
#include <string>
#include <vector>

namespace {

using namespace Kestro::Database;

constexpr programs::Program Self = {"kestro-script",
                                    R"(Usage: kestro-script [OPTION]... FILE...
  or:  kestro-script --help | --version

Runs scripts of SQL on the local server, as they are found in the world: with
DELIMITER and source lines, comments for some servers only, and line ends of any
kind. A FILE that is "-" is standard input. Each FILE has a session of its own.
Results of statements are read and dropped. A statement that fails is reported
with file, line, the server's message and the statement, and ends the run.

Ctrl-C ends the run after the statements that were sent, and reports how far it
came; a second one ends it at once.

Options:
  --database=NAME  the database on which each script begins
  --continue       go on after statements that fail, and count them
  --help           print this text
  --version        print the version

Exit status:
  0  everything has run
  1  a statement failed, or a script could not be read
  2  wrong usage
)"};

struct Options {
    std::string database;
    bool goOn = false;
    std::vector<std::string> files;
};

// Asked to end by this signal.
volatile std::sig_atomic_t stopSignal = 0;
std::atomic<Script*> running = nullptr;

void stop(int signal)
{
    stopSignal = signal;
    if (Script* const script = running) {
        script->stop();
    }
}

// Reading standard input is to be interrupted, so no SA_RESTART.
void stopOnSignals()
{
    struct sigaction action {};
    action.sa_handler = stop;
    action.sa_flags = static_cast<int>(SA_RESETHAND);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

class Run {
public:
    explicit Run(const Options& options) : m_options(options)
    {
        for (const std::string& file : options.files) {
            m_left += sizeOf(file);
        }
    }

    int all()
    {
        for (const std::string& file : m_options.files) {
            if (stopSignal != 0 || (m_failures != 0 && !m_options.goOn)) {
                break;
            }
            run(file);
        }
        m_progress.clear();
        if (stopSignal != 0) {
            Self.fail("stopped before " + m_position + "; " + std::to_string(m_statements) +
                      " statements have run");
        } else if (m_failures == 0) {
            m_progress.end(m_bytes, m_statements);
            return programs::Success;
        } else if (m_options.goOn) {
            Self.fail(std::to_string(m_failures) + " failed, " + std::to_string(m_statements) +
                      " statements have run");
        }
        return programs::Failure;
    }

private:
    static std::uint64_t sizeOf(const std::string& file)
    {
        std::error_code none;
        const auto size = std::filesystem::file_size(file, none);
        return none ? 0 : size;
    }

    void run(const std::string& file)
    {
        m_position = file;
        m_left -= sizeOf(file);
        std::optional<Connection> connection;
        try {
            connection.emplace(m_options.database);
        } catch (const DatabaseException& e) {
            ++m_failures;
            Self.failToConnect(e.stringParameter());
            return;
        }
        try {
            Script script(file, *connection);
            running = &script;
            if (stopSignal != 0) {
                script.stop();
            }
            while (step(script)) {
            }
            running = nullptr;
            m_position = script.position();
            m_bytes += script.bytes();
            m_statements += script.statements();
        } catch (const DatabaseException& e) {
            report(e, 0);
        }
    }

    bool step(Script& script)
    {
        try {
            const bool more = script.step();
            const std::uint64_t size = script.size();
            m_progress.show(m_bytes + script.bytes(), size != 0 ? m_bytes + size + m_left : 0);
            return more;
        } catch (const DatabaseException& e) {
            report(e, script.get_error_number());
            return m_options.goOn;
        }
    }

    void report(const DatabaseException& failure, int number)
    {
        ++m_failures;
        m_progress.clear();
        const std::string place =
            failure.lineNumber() != 0
                ? failure.fileName() + ':' + std::to_string(failure.lineNumber()) + ": "
                : "";
        Self.fail(programs::onOneLine(place + (number != 0 ? std::to_string(number) + ", " : "") +
                                      failure.stringParameter()));
    }

    const Options& m_options;
    Progress m_progress;
    std::string m_position;
    std::uint64_t m_left = 0; // bytes of the files that are not begun yet
    std::uint64_t m_bytes = 0;
    std::uint64_t m_statements = 0;
    std::uint64_t m_failures = 0;
};

std::optional<Options> parse(int argc, char** argv)
{
    enum { Database = 1, Continue };
    static const option Known[] = {{"database", required_argument, nullptr, Database},
                                   {"continue", no_argument, nullptr, Continue},
                                   {nullptr, 0, nullptr, 0}};
    Options options;
    opterr = 0; // the message is ours
    for (int found; (found = getopt_long(argc, argv, ":", Known, nullptr)) != -1;) {
        if (found == Database) {
            options.database = optarg;
        } else if (found == Continue) {
            options.goOn = true;
        } else {
            Self.misused(std::string("not an option, or one without its value: ") +
                         argv[optind - 1]);
            return std::nullopt;
        }
    }
    options.files.assign(argv + optind, argv + argc);
    if (options.files.empty()) {
        Self.misused("no file is named; \"-\" is standard input");
        return std::nullopt;
    }
    return options;
}

} // namespace

int main(int argc, char** argv)
try {
    if (Self.answers(argc, argv)) {
        return programs::Success;
    }
    const std::optional<Options> options = parse(argc, argv);
    if (!options) {
        return programs::WrongUsage;
    }
    stopOnSignals();
    const int status = Run(*options).all();
    if (stopSignal != 0) {
        // So that whoever started the program sees why it ended.
        std::signal(stopSignal, SIG_DFL);
        std::raise(stopSignal);
    }
    return status;
} catch (const std::exception& e) {
    return Self.fail(e.what());
}
