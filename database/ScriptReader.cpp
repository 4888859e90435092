#include <Kestro/Database/ScriptReader.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace Kestro::Database {

namespace {

constexpr std::size_t BlockSize = 65'536;
constexpr std::size_t MaxDelimiter =
    255; // far below BlockSize, so that a block shows one as a whole
constexpr std::string_view ByteOrderMark = "\xef\xbb\xbf";
constexpr char Quotes[] = {'\'', '"', '`'};

// What the character at hand is part of.
enum Inside : unsigned char { Plain, SingleQuotes, DoubleQuotes, Backticks, Comment, LineComment };

constexpr bool isBlank(char c)
{
    return c == ' ' || (c >= '\t' && c <= '\r');
}

bool equalsIgnoringCase(std::string_view text, std::string_view lower)
{
    return std::ranges::equal(text, lower, [](unsigned char a, char b) {
        return std::tolower(a) == static_cast<unsigned char>(b);
    });
}

// Whether the comment that begins here is one that the server executes.
bool isExecuted(std::string_view comment)
{
    return comment.starts_with("/*!") || comment.starts_with("/*M!");
}

std::string trimmed(std::string_view text)
{
    while (!text.empty() && isBlank(text.front())) {
        text.remove_prefix(1);
    }
    while (!text.empty() && isBlank(text.back())) {
        text.remove_suffix(1);
    }
    return std::string(text);
}

} // namespace

// A file that is being read.
struct ScriptReader::Source {
    std::shared_ptr<const std::string> name;
    int file;
    bool owned;
    dev_t device;
    ino_t inode;
    std::uint64_t line = 1;
    std::size_t at = 0; // of the block
    std::size_t end = 0;
    bool complete = false;
    int error = 0; // of a read
    std::array<char, BlockSize> block;

    Source(std::shared_ptr<const std::string> called, int descriptor, bool close,
           const struct stat& is)
        : name(std::move(called)), file(descriptor), owned(close), device(is.st_dev),
          inode(is.st_ino)
    {}
    Source(const Source&) = delete;
    Source& operator=(const Source&) = delete;
    ~Source()
    {
        if (owned) {
            close(file);
        }
    }

    std::string_view rest() const { return {block.data() + at, end - at}; }
};

struct ScriptReader::State {
    std::vector<std::unique_ptr<Source>> sources; // the last one is read, the others name it
    std::string delimiter;
    std::array<unsigned char, 256> special{}; // a bit for every Inside in which a character counts
    std::uint64_t read = 0;
    std::atomic<bool> stopped = false;

    Source& source() const { return *sources.back(); }

    // What is at hand of the file: so many bytes at least, if the file has them.
    std::string_view look(std::size_t bytes)
    {
        Source& from = source();
        while (from.end - from.at < bytes && !from.complete) {
            std::memmove(from.block.data(), from.block.data() + from.at, from.end - from.at);
            from.end -= std::exchange(from.at, 0);
            const ssize_t got =
                ::read(from.file, from.block.data() + from.end, from.block.size() - from.end);
            if (got < 0 && errno == EINTR) {
                from.complete = stopped;
                continue;
            }
            from.complete = got <= 0;
            if (got < 0) {
                from.error = errno;
                break;
            }
            from.end += static_cast<std::size_t>(got);
            read += static_cast<std::uint64_t>(got);
        }
        return from.rest();
    }
};

ScriptReader::ScriptReader(const std::string& path)
    : m_state(std::make_unique<State>()), m_file(std::make_shared<const std::string>(path))
{
    setDelimiter(";");
    open(path);
}

ScriptReader::~ScriptReader() = default;

void ScriptReader::open(const std::string& path)
{
    const bool standardInput = path == "-" && m_state->sources.empty();
    // A pipe without a writer would be waited for.
    const int file = standardInput
                         ? STDIN_FILENO
                         : ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    struct stat is {};
    if (file < 0 || fstat(file, &is) != 0) {
        fail(m_line, "cannot open " + path + ": " + std::strerror(errno));
    }
    auto source = std::make_unique<Source>(std::make_shared<const std::string>(path), file,
                                           !standardInput, is);
    if (S_ISDIR(is.st_mode)) {
        fail(m_line, path + " is a directory");
    }
    if (!standardInput && !S_ISREG(is.st_mode)) {
        fail(m_line, path + " is no ordinary file; what comes through a pipe is read from standard "
                            "input (\"-\")");
    }
    for (const auto& other : m_state->sources) {
        if (other->device == is.st_dev && other->inode == is.st_ino) {
            fail(m_line, "source loop: " + path + " is being read already");
        }
    }
    if (S_ISREG(is.st_mode)) {
        m_size += static_cast<std::uint64_t>(is.st_size);
    } else {
        m_unknownSize = true;
    }
    m_state->sources.push_back(std::move(source));
    if (m_state->look(ByteOrderMark.size()).starts_with(ByteOrderMark)) {
        m_state->source().at += ByteOrderMark.size();
    }
}

void ScriptReader::setDelimiter(const std::string& delimiter)
{
    constexpr auto bit = [](Inside inside) { return 1U << inside; };
    constexpr unsigned All = ~0U;
    auto& special = m_state->special;
    special.fill(0);
    const auto mark = [&](char c, unsigned bits) {
        auto& marks = special[static_cast<unsigned char>(c)];
        marks = static_cast<unsigned char>(marks | bits);
    };
    for (const char c : std::string_view("'\"`#-/*\\;")) {
        mark(c, bit(Plain));
    }
    mark(delimiter.front(), bit(Plain));
    mark('\'', bit(SingleQuotes));
    mark('"', bit(DoubleQuotes));
    mark('`', bit(Backticks));
    mark('\\', bit(SingleQuotes) | bit(DoubleQuotes));
    mark('*', bit(Comment));
    mark('\n', All);
    mark('\r', All);
    m_state->delimiter = delimiter;
}

bool ScriptReader::atDelimiter()
{
    return m_state->look(m_state->delimiter.size()).starts_with(m_state->delimiter);
}

bool ScriptReader::next(std::string& text)
{
    m_compound = false;
    while (!stopped() && skipToStatement()) {
        Source& source = m_state->source();
        m_file = source.name;
        m_line = source.line;
        if (runCommand()) {
            continue;
        }
        const std::size_t begin = text.size();
        try {
            cut(text);
        } catch (...) {
            text.resize(begin);
            throw;
        }
        if (m_state->source().error == 0 && !stopped()) {
            return true;
        }
        text.resize(begin); // a part of a statement
    }
    return false;
}

// Goes to the next character that is neither blank nor in a comment. Returns false if there is
// none.
bool ScriptReader::skipToStatement()
{
    while (!m_state->sources.empty()) {
        const std::string_view rest = m_state->look(4);
        Source& source = m_state->source();
        if (rest.empty()) {
            if (stopped()) {
                return false;
            }
            leave();
        } else if (isBlank(rest[0])) {
            source.line += static_cast<unsigned>(rest[0] == '\n');
            ++source.at;
        } else if (atDelimiter()) {
            source.at += m_state->delimiter.size();
        } else if (rest[0] == '#' || rest.starts_with("--")) {
            restOfLine(false);
        } else if (rest.starts_with("/*") && !isExecuted(rest)) {
            skipComment();
        } else if (rest.starts_with("\\g") || rest.starts_with("\\G")) {
            source.at += 2;
        } else {
            return true;
        }
    }
    return false;
}

// Goes back to the file that names this one.
void ScriptReader::leave()
{
    const std::unique_ptr<Source> left = std::move(m_state->sources.back());
    m_state->sources.pop_back();
    if (left->error != 0) {
        m_file = left->name;
        fail(left->line, std::string("cannot read on: ") + std::strerror(left->error));
    }
}

// Whether a command of the client was there, and has been obeyed.
bool ScriptReader::runCommand()
{
    constexpr std::string_view Delimiter = "delimiter";
    constexpr std::string_view Include = "source";
    const std::string_view rest = m_state->look(Delimiter.size() + 1);
    std::size_t& at = m_state->source().at;
    if (equalsIgnoringCase(rest.substr(0, Delimiter.size()), Delimiter) &&
        (rest.size() == Delimiter.size() || isBlank(rest[Delimiter.size()]))) {
        at += Delimiter.size();
        const std::string line = trimmed(restOfLine(false));
        const std::string delimiter(line.begin(), std::ranges::find_if(line, isBlank));
        if (delimiter.empty() || delimiter.size() > MaxDelimiter) {
            fail(m_line, "DELIMITER without a delimiter, or with one of more than 255 bytes");
        }
        if (delimiter.find('\\') != std::string::npos) {
            fail(m_line, "DELIMITER with a backslash");
        }
        setDelimiter(delimiter);
        return true;
    }
    if (rest.starts_with("\\.")) {
        at += 2;
    } else if (equalsIgnoringCase(rest.substr(0, Include.size()), Include) &&
               rest.size() > Include.size() &&
               (rest[Include.size()] == ' ' || rest[Include.size()] == '\t')) {
        at += Include.size();
    } else {
        return false;
    }
    const std::string path = trimmed(restOfLine(true));
    const std::size_t directory = path.starts_with('/') ? 0 : m_file->rfind('/') + 1;
    open(m_file->substr(0, directory) + path);
    return true;
}

// Takes the rest of the line with its end, or what is before the delimiter with that. No more of it
// is kept than the name of a file may have.
std::string ScriptReader::restOfLine(bool upToDelimiter)
{
    constexpr std::size_t Kept = 4096;
    std::string text;
    while (!m_state->look(1).empty()) {
        Source& source = m_state->source();
        if (upToDelimiter && atDelimiter()) {
            source.at += m_state->delimiter.size();
            break;
        }
        const char c = source.block[source.at++];
        if (c == '\n') {
            ++source.line;
            break;
        }
        if (text.size() < Kept) {
            text += c;
        }
    }
    return text;
}

void ScriptReader::skipComment()
{
    Source& source = m_state->source();
    const std::uint64_t line = source.line;
    source.at += 2;
    for (std::string_view rest; !(rest = m_state->look(2)).empty();) {
        if (rest.starts_with("*/")) {
            source.at += 2;
            return;
        }
        source.line += static_cast<unsigned>(rest[0] == '\n');
        ++source.at;
    }
    if (source.error == 0 && !stopped()) {
        unterminated(line, "comment");
    }
}

// Appends the statement that begins here.
void ScriptReader::cut(std::string& text)
{
    State& state = *m_state;
    Source& source = state.source();
    const std::size_t begin = text.size();
    const std::string_view first = state.look(4).substr(0, 4);
    const bool endsWithLine = equalsIgnoringCase(first.substr(0, 3), "use") && first.size() == 4 &&
                              (first[3] == ' ' || first[3] == '\t');
    Inside inside = Plain;
    bool executed = false; // in a comment that the server executes
    bool tooLong = false;
    std::uint64_t quoteLine = 0;
    std::uint64_t commentLine = 0;
    const auto take = [&](std::size_t bytes) {
        tooLong = tooLong || bytes > m_maxStatement - (text.size() - begin);
        if (!tooLong) {
            text.append(source.block.data() + source.at, bytes);
        }
        source.at += bytes;
    };
    const auto isSpecial = [&](char c) {
        const unsigned marks = state.special[static_cast<unsigned char>(c)];
        return (marks >> inside & 1U) != 0;
    };
    // So that what is written behind the statement is not in the comment.
    const auto endLineComment = [&] { text += inside == LineComment ? "\n" : ""; };

    for (;;) {
        std::string_view rest = state.look(1);
        if (rest.empty()) {
            break;
        }
        const auto ordinary = std::ranges::find_if(rest, isSpecial) - rest.begin();
        take(static_cast<std::size_t>(ordinary));
        rest = state.look(4);
        if (rest.empty() || !isSpecial(rest[0])) {
            continue;
        }
        const char c = rest[0];
        if (c == '\r' && rest.starts_with("\r\n")) {
            ++source.at;
        } else if (c == '\n') {
            if (endsWithLine && (inside == Plain || inside == LineComment) &&
                text.find_first_not_of(" \t", begin + first.size()) != std::string::npos) {
                endLineComment();
                checkLength(tooLong);
                return;
            }
            inside = inside == LineComment ? Plain : inside;
            ++source.line;
            take(1);
        } else if (inside == Comment) {
            inside = rest.starts_with("*/") ? Plain : Comment;
            take(inside == Plain ? 2 : 1);
        } else if (inside != Plain) {
            if (c == '\\') {
                // The end of a line is handled above.
                take(rest.size() > 1 && rest[1] != '\r' && rest[1] != '\n' ? 2 : 1);
            } else {
                inside = c == '\r' ? inside : Plain;
                take(1);
            }
        } else if (!executed && atDelimiter()) {
            source.at += state.delimiter.size();
            checkLength(tooLong);
            return;
        } else if (!executed && c == '\\' && rest.size() > 1 &&
                   (rest[1] == 'g' || rest[1] == 'G')) {
            source.at += 2;
            checkLength(tooLong);
            return;
        } else if (c == '#' || (rest.starts_with("--") && (rest.size() == 2 || isBlank(rest[2])))) {
            inside = LineComment;
        } else if (rest.starts_with("/*")) {
            executed = executed || isExecuted(rest);
            inside = isExecuted(rest) ? Plain : Comment;
            commentLine = source.line;
            take(2);
        } else if (rest.starts_with("*/")) {
            executed = false;
            take(2);
        } else {
            m_compound = m_compound || c == ';';
            if (const auto* const quote = std::ranges::find(Quotes, c); quote != std::end(Quotes)) {
                inside = static_cast<Inside>(SingleQuotes + (quote - std::begin(Quotes)));
                quoteLine = source.line;
            }
            take(1);
        }
    }
    if (source.error != 0 || stopped()) {
        return;
    }
    if (inside == SingleQuotes || inside == DoubleQuotes || inside == Backticks) {
        unterminated(quoteLine, "text in quotation marks");
    }
    if (inside == Comment || executed) {
        unterminated(commentLine, "comment");
    }
    if (!endsWithLine && state.delimiter != ";") {
        unterminated(m_line, "statement: the delimiter is " + state.delimiter);
    }
    endLineComment();
    checkLength(tooLong);
}

void ScriptReader::checkLength(bool tooLong) const
{
    if (tooLong) {
        fail(m_line, "a statement of more than " + std::to_string(m_maxStatement) + " bytes");
    }
}

void ScriptReader::unterminated(std::uint64_t line, const std::string& what) const
{
    fail(line, "unterminated " + what);
}

void ScriptReader::fail(std::uint64_t line, const std::string& reason) const
{
    DatabaseException failure(4, *m_file, static_cast<unsigned>(line));
    failure.stringParameter(reason);
    throw failure;
}

std::string ScriptReader::position() const
{
    if (m_state->sources.empty()) {
        return *m_file + ": end";
    }
    const Source& source = m_state->source();
    return *source.name + ':' + std::to_string(source.line);
}

std::uint64_t ScriptReader::bytes() const
{
    std::uint64_t bytes = m_state->read;
    for (const auto& source : m_state->sources) {
        bytes -= source->end - source->at;
    }
    return bytes;
}

void ScriptReader::stop() noexcept
{
    m_state->stopped = true;
}

bool ScriptReader::stopped() const noexcept
{
    return m_state->stopped;
}

} // namespace Kestro::Database
