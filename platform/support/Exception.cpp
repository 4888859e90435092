#include <Kestro/Exception.h>

#include <mutex>
#include <utility>

namespace Kestro {

// Several threads may ask for it at once.
struct ExceptionRecord::Description {
    std::once_flag once;
    std::string text;
};

ExceptionRecord::ExceptionRecord(const std::string& message, int intParameter,
                                 const std::string& fileName, unsigned lineNumber)
    : m_message(message), m_intParameter(intParameter), m_fileName(fileName),
      m_lineNumber(lineNumber), m_stringParameter(std::make_shared<const std::string>())
{
    changed();
}

ExceptionRecord::~ExceptionRecord() = default;

const std::string& ExceptionRecord::stringParameter() const
{
    return *m_stringParameter;
}

void ExceptionRecord::stringParameter(const std::string& text)
{
    if (&text != m_stringParameter.get()) { // it may be there already, see below
        m_stringParameter = std::make_shared<const std::string>(text);
    }
    changed();
}

void ExceptionRecord::stringParameter(std::string&& text)
{
    const auto moved = std::make_shared<const std::string>(std::move(text));
    m_stringParameter = moved;
    stringParameter(*moved); // a derived class may have overridden it
}

int ExceptionRecord::intParameter() const
{
    return m_intParameter;
}

void ExceptionRecord::intParameter(int value)
{
    m_intParameter = value;
    changed();
}

const std::string& ExceptionRecord::fileName() const
{
    return m_fileName;
}

void ExceptionRecord::fileName(const std::string& name)
{
    m_fileName = name;
    changed();
}

void ExceptionRecord::fileName(const char* name)
{
    fileName(std::string(name != nullptr ? name : ""));
}

unsigned ExceptionRecord::lineNumber() const
{
    return m_lineNumber;
}

void ExceptionRecord::lineNumber(unsigned line)
{
    m_lineNumber = line;
    changed();
}

void ExceptionRecord::cause(const Exception& replaced)
{
    m_cause = std::make_shared<const Exception>(replaced);
    changed();
}

const Exception& ExceptionRecord::cause() const
{
    if (!m_cause) {
        throw Exception("cause", 1);
    }
    return *m_cause;
}

bool ExceptionRecord::hasCause() const
{
    return m_cause != nullptr;
}

std::string ExceptionRecord::describe() const
{
    std::string text = m_message + " (" + std::to_string(m_intParameter) + ")";
    if (!m_fileName.empty()) {
        text += " at " + m_fileName + ":" + std::to_string(m_lineNumber);
    }
    if (!m_stringParameter->empty()) {
        text.append(": ").append(*m_stringParameter);
    }
    if (m_cause) {
        text.append(" <- ").append(m_cause->asString());
    }
    return text;
}

void ExceptionRecord::changed()
{
    m_description = std::make_shared<Description>();
}

const std::string& ExceptionRecord::asString() const
{
    std::call_once(m_description->once, [this] { m_description->text = describe(); });
    return m_description->text;
}

Exception::Exception(const std::string& message, int intParameter, const std::string& fileName,
                     unsigned lineNumber)
    : ExceptionRecord(message, intParameter, fileName, lineNumber)
{}

Exception::~Exception() = default;

const char* Exception::what() const noexcept
try {
    return asString().c_str();
} catch (...) {
    return message().c_str();
}

} // namespace Kestro
