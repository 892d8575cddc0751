#include "qmp/exception.h"

#include "qmp/console.h"

namespace qmp {

Exception::Exception(std::string function, std::string message)
    : function_(std::move(function)), message_(std::move(message)) {
    what_ = function_.empty() ? message_ : function_ + ": " + message_;
}

void Exception::print() const {
    std::string text = "Exception Encountered: ";
    text += type_name();
    text += "\n\nIn Function: ";
    text += function_;
    text += "\n";
    text += message_;
    text += "\n";
    Console::println(text, Console::Colour::Error);
}

EndOfStreamException::EndOfStreamException(std::string function)
    : Exception(std::move(function), "Unexpected end of stream.") {}

BufferTooSmallException::BufferTooSmallException(std::string function, uint64_t buffer_size,
                                                 uint64_t required_size)
    : Exception(std::move(function), "Buffer is too small:\n    Buffer Size: " +
                                         std::to_string(buffer_size) + "\n    Required Size: " +
                                         std::to_string(required_size)),
      buffer_size_(buffer_size),
      required_size_(required_size) {}

FarMemoryOutOfBoundsException::FarMemoryOutOfBoundsException(std::string place,
                                                             std::string object_name,
                                                             uint64_t offset, uint64_t length,
                                                             uint64_t object_size)
    : FarMemoryException(std::move(place),
                         "Access is out of bounds.\n    Object: " + object_name +
                             "\n    Offset: " + std::to_string(offset) +
                             "\n    Length: " + std::to_string(length) +
                             "\n    Object Size: " + std::to_string(object_size)),
      object_name_(std::move(object_name)),
      offset_(offset),
      length_(length) {}

namespace FileIO {
FileException::FileException(std::string function, std::string path, std::string message)
    : Exception(std::move(function), "Path: " + path + "\n" + message), path_(std::move(path)) {}
}  // namespace FileIO

}  // namespace qmp
