#include <Kestro/Exception.h>

namespace Kestro {

ExceptionRecord::ExceptionRecord(const std::string& message, int intParameter,
                                 const std::string& fileName, unsigned lineNumber)
    : m_message(message), m_intParameter(intParameter), m_fileName(fileName),
      m_lineNumber(lineNumber), m_stringParameter(std::make_shared<const std::string>())
{
    describe();
}

ExceptionRecord::~ExceptionRecord() = default;

const std::string& ExceptionRecord::stringParameter() const
{
    return *m_stringParameter;
}

void ExceptionRecord::stringParameter(const std::string& text)
{
    m_stringParameter = std::make_shared<const std::string>(text);
    describe();
}

int ExceptionRecord::intParameter() const
{
    return m_intParameter;
}

void ExceptionRecord::intParameter(int value)
{
    m_intParameter = value;
    describe();
}

const std::string& ExceptionRecord::fileName() const
{
    return m_fileName;
}

void ExceptionRecord::fileName(const std::string& name)
{
    m_fileName = name;
    describe();
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
    describe();
}

void ExceptionRecord::cause(const Exception& replaced)
{
    m_cause = std::make_shared<const Exception>(replaced);
    describe();
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

void ExceptionRecord::describe()
{
    std::string text = m_message + " (" + std::to_string(m_intParameter) + ")";
    if (!m_fileName.empty()) {
        text += " at " + m_fileName + ":" + std::to_string(m_lineNumber);
    }
    if (!m_stringParameter->empty()) {
        text.append(": ").append(*m_stringParameter);
    }
    if (m_cause) {
        text += " <- " + m_cause->asString();
    }
    m_text = std::make_shared<const std::string>(std::move(text));
}

Exception::Exception(const std::string& message, int intParameter, const std::string& fileName,
                     unsigned lineNumber)
    : ExceptionRecord(message, intParameter, fileName, lineNumber)
{}

Exception::~Exception() = default;

const char* Exception::what() const noexcept
{
    return m_text->c_str();
}

} // namespace Kestro
