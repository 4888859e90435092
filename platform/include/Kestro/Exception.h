#pragma once

#include <exception>
#include <memory>
#include <string>

#pragma GCC visibility push(default)
namespace Kestro {

class Exception;

/// What every Exception carries. It is the first base of Exception, ahead of std::exception, so
/// that its virtual operations keep their slots, and it declares them in the order of these.
/// Programs use Exception, never this class.
class ExceptionRecord {
public:
    virtual ~ExceptionRecord();

    /// The text that the failing side gave, usually the server's own; empty if there is none.
    /// The reference lives until the next change of this object.
    virtual const std::string& stringParameter() const;
    virtual void stringParameter(const std::string& text);
    void stringParameter(std::string&& text); ///< calls the one before, without a copy

    /// 0 for a refused connect, 1 for access through an empty handle, 4 for the library's own
    /// failures.
    virtual int intParameter() const;
    virtual void intParameter(int value);

    /// The source file that reports the failure, without extension; empty if none was given.
    /// A null pointer counts as none.
    virtual const std::string& fileName() const;
    virtual void fileName(const std::string& name);
    virtual void fileName(const char* name);

    /// The line in that file; 0 if none was given.
    virtual unsigned lineNumber() const;
    virtual void lineNumber(unsigned line);

    /// Keeps a copy of the exception that this one replaces, with the causes of that one. The copy
    /// is a plain Exception, without what a derived class adds.
    virtual void cause(const Exception& replaced);

    /// The exception that this one replaces. Throws Exception("cause", 1) if there is none.
    virtual const Exception& cause() const;
    virtual bool hasCause() const;

    /// The message given at construction.
    const std::string& message() const { return m_message; }

    /// All of it in one text: message, int parameter, file and line where there are any, string
    /// parameter, then the same of every cause, each once:
    /// `dbDelete (4) at Connection:152: Can't drop ... <- DatabaseException (4) at Query:88: ...`
    /// The first call after a change puts it together, and throws std::bad_alloc if memory runs
    /// out.
    const std::string& asString() const;

protected:
    /// The arguments are those of the constructor of Exception.
    ExceptionRecord(const std::string& message, int intParameter, const std::string& fileName,
                    unsigned lineNumber);
    ExceptionRecord(const ExceptionRecord&) = default;
    ExceptionRecord& operator=(const ExceptionRecord&) = default;

private:
    struct Description;

    std::string describe() const;
    void changed();

    std::string m_message;
    int m_intParameter;
    std::string m_fileName;
    unsigned m_lineNumber;
    // Shared, never changed: the text may hold a whole script, and exceptions are copied when they
    // are kept as causes or carried to other threads.
    std::shared_ptr<const std::string> m_stringParameter;
    std::shared_ptr<const Exception> m_cause;
    // What asString() gives. Copies share it too.
    std::shared_ptr<Description> m_description;

    friend class Exception;
};

/// The exception of the whole library. Thrown by value, caught by reference.
///
/// Distinct objects may be used by distinct threads, copies of one exception too; one object may be
/// read by several threads as long as none changes it.
class Exception : public ExceptionRecord, public std::exception {
public:
    /// The operations of the same names return the four.
    explicit Exception(const std::string& message, int intParameter = 0,
                       const std::string& fileName = "", unsigned lineNumber = 0);
    Exception(const Exception&) = default;
    Exception& operator=(const Exception&) = default;
    ~Exception() override;

    /// The text of asString(), or the message alone if there is no memory for it. The pointer lives
    /// until the object is changed or destroyed.
    const char* what() const noexcept override;
};

} // namespace Kestro
#pragma GCC visibility pop
