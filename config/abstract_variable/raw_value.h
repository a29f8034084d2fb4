// Raw values: a node read or written as plain bytes, with no encoding at all.
//
// A raw value is the bytes of a string, a data object or a file, so that large values need not pass
// through base64 and a JSON parser. The directions are deliberately uneven: a string goes both ways
// by stream; a data object is written by stream and has no raw read; a file is read by stream but
// written only by whole buffers.
//
//   {
//       std::unique_ptr<IStreamSender> sink = setRawValue(text.get());
//       sink->send(bytes, size);
//   }                                           // the string variable is set here, once
//   std::unique_ptr<IStreamReceiver> source = GetRawValue(file.get());
//   SetRawValue(file.get(), std::move(content));   // clears the file's MIME type
//
// Every other kind of object fails with "Operation not supported" before a byte moves. The object
// given must outlive the stream made from it.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "config/abstract_variable/visitors.h"

namespace ovtx::config::abstract_variable::lib_abstract_variable::v2 {

// A sink that writes the node: a data object's writer, or for a string variable a sink that
// collects the bytes and sets the variable once, when it is dropped, with whatever arrived.
std::unique_ptr<IStreamSender> setRawValue(IAbstractObject* object);

// A source that reads the node: a file read from its start, or a string variable's text as it was
// when the source was made.
std::unique_ptr<IStreamReceiver> GetRawValue(IAbstractObject* object);

// Replaces a file's content; its MIME type becomes empty.
void SetRawValue(IAbstractObject* object, std::vector<std::uint8_t>&& bytes);

// Appends to a file's content; its MIME type stays.
void AppendRawValue(IAbstractObject* object, std::vector<std::uint8_t>&& bytes);

// The commands behind the four entry points, one visit each.
class CreateRawValueSender : public TypeSpecificCommand {
  public:
    using TypeSpecificCommand::visit;
    void visit(IData& object) override;
    void visit(IVariable<std::string>& object) override;
    std::unique_ptr<IStreamSender> take() { return std::move(m_sender); }

  private:
    std::unique_ptr<IStreamSender> m_sender;
};

class CreateRawValueReceiver : public TypeSpecificCommand {
  public:
    using TypeSpecificCommand::visit;
    void visit(IFile& object) override;
    void visit(IVariable<std::string>& object) override;
    std::unique_ptr<IStreamReceiver> take() { return std::move(m_receiver); }

  private:
    std::unique_ptr<IStreamReceiver> m_receiver;
};

class RawFileSetter : public TypeSpecificCommand {
  public:
    explicit RawFileSetter(std::vector<std::uint8_t>&& bytes) : m_bytes(std::move(bytes)) {}
    using TypeSpecificCommand::visit;
    void visit(IFile& object) override;

  private:
    std::vector<std::uint8_t> m_bytes;
};

class RawFileAppender : public TypeSpecificCommand {
  public:
    explicit RawFileAppender(std::vector<std::uint8_t>&& bytes) : m_bytes(std::move(bytes)) {}
    using TypeSpecificCommand::visit;
    void visit(IFile& object) override;

  private:
    std::vector<std::uint8_t> m_bytes;
};

}  // namespace ovtx::config::abstract_variable::lib_abstract_variable::v2
