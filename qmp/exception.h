// The exception family of the whole program. Every failure is a qmp::Exception that carries the
// name of the operation that raised it ("Class::method()") and a message ending with a full stop.
// Subclasses tell the kind of failure; callers catch the kind they can handle and let the rest
// reach the outermost handler, which prints the operation name and the message.
#pragma once

#include <cstdint>
#include <exception>
#include <string>

namespace qmp {

class Exception : public std::exception {
public:
    Exception(std::string function, std::string message);

    const std::string& function() const noexcept { return function_; }
    const std::string& message() const noexcept { return message_; }
    // "function: message", for logs and for std::exception handlers.
    const char* what() const noexcept override { return what_.c_str(); }
    // The class name as printed in the heading of an error report.
    virtual const char* type_name() const noexcept { return "Exception"; }
    // Prints the error report in the error colour: the class, the operation and the message.
    void print() const;

private:
    std::string function_;
    std::string message_;
    std::string what_;
};

#define QMP_DECLARE_EXCEPTION(NAME, BASE)                                          \
    class NAME : public BASE {                                                     \
    public:                                                                        \
        using BASE::BASE;                                                          \
        const char* type_name() const noexcept override { return #NAME; }          \
    }

QMP_DECLARE_EXCEPTION(InvalidParametersException, Exception);
QMP_DECLARE_EXCEPTION(ParseException, Exception);
QMP_DECLARE_EXCEPTION(KeyNotFoundException, Exception);
QMP_DECLARE_EXCEPTION(LimitExceededException, Exception);
QMP_DECLARE_EXCEPTION(AlgorithmFailedException, Exception);
QMP_DECLARE_EXCEPTION(ArithmeticException, Exception);
QMP_DECLARE_EXCEPTION(BSRModularCheckFailedException, AlgorithmFailedException);
QMP_DECLARE_EXCEPTION(StringException, Exception);
QMP_DECLARE_EXCEPTION(MemoryAllocationFailedException, Exception);
QMP_DECLARE_EXCEPTION(SystemException, Exception);
QMP_DECLARE_EXCEPTION(FarMemoryException, Exception);

// The text ran out in the middle of a value.
class EndOfStreamException : public Exception {
public:
    explicit EndOfStreamException(std::string function);
    const char* type_name() const noexcept override { return "EndOfStreamException"; }
};

// A work buffer cannot hold what the operation needs. The text is
// "Buffer is too small:\n    Buffer Size: N\n    Required Size: M".
class BufferTooSmallException : public Exception {
public:
    BufferTooSmallException(std::string function, uint64_t buffer_size, uint64_t required_size);
    const char* type_name() const noexcept override { return "BufferTooSmallException"; }
    uint64_t buffer_size() const noexcept { return buffer_size_; }
    uint64_t required_size() const noexcept { return required_size_; }

private:
    uint64_t buffer_size_;
    uint64_t required_size_;
};

// An access outside a far-memory object; raised before any byte moves.
class FarMemoryOutOfBoundsException : public FarMemoryException {
public:
    FarMemoryOutOfBoundsException(std::string place, std::string object_name, uint64_t offset,
                                  uint64_t length, uint64_t object_size);
    const char* type_name() const noexcept override { return "FarMemoryOutOfBoundsException"; }
    const std::string& object_name() const noexcept { return object_name_; }
    uint64_t offset() const noexcept { return offset_; }
    uint64_t length() const noexcept { return length_; }

private:
    std::string object_name_;
    uint64_t offset_;
    uint64_t length_;
};

namespace FileIO {
// A file operation failed; the message names the path and the system's error text.
class FileException : public Exception {
public:
    FileException(std::string function, std::string path, std::string message);
    const char* type_name() const noexcept override { return "FileException"; }
    const std::string& path() const noexcept { return path_; }

private:
    std::string path_;
};
}  // namespace FileIO

}  // namespace qmp
