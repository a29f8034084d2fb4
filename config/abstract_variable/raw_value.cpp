#include "config/abstract_variable/raw_value.h"

#include <string>
#include <utility>

#include "config/abstract_variable/object_construction.h"

namespace ovtx::config::abstract_variable::lib_abstract_variable::v2 {

namespace {

// Collects the bytes sent and sets the string variable once: on close, where a variable that
// refuses the text fails the close, or else when dropped, where a refusal can't be reported.
class Sender : public IStreamSender {
  public:
    explicit Sender(IVariable<std::string>& variable) : m_variable(variable) {}
    Sender(const Sender&) = delete;
    Sender& operator=(const Sender&) = delete;
    ~Sender() override {
        try {
            close();
        } catch (...) {  // a destructor must not throw; close() is where the caller learns of it
        }
    }

    void close() override {
        if (!std::exchange(m_closed, true)) {
            m_variable.set(m_text);
        }
    }

    std::size_t send(const std::uint8_t* bytes, std::size_t size) override {
        m_text.append(reinterpret_cast<const char*>(bytes), size);
        return size;
    }

  private:
    IVariable<std::string>& m_variable;
    std::string m_text;
    bool m_closed = false;
};

// Reads a file from its start, position by position.
class Receiver : public IStreamReceiver {
  public:
    explicit Receiver(IFile& file) : m_file(file) {}

    std::size_t receive(std::uint8_t* buffer, std::size_t size) override {
        const std::size_t count = m_file.read(buffer, size, m_position);
        m_position += count;
        return count;
    }

  private:
    std::uint64_t m_position = 0;
    IFile& m_file;
};

}  // namespace

void CreateRawValueSender::visit(IData& object) {
    m_sender = object.newWriter();
}

void CreateRawValueSender::visit(IVariable<std::string>& object) {
    m_sender = std::make_unique<Sender>(object);
}

void CreateRawValueReceiver::visit(IFile& object) {
    m_receiver = std::make_unique<Receiver>(object);
}

void CreateRawValueReceiver::visit(IVariable<std::string>& object) {
    const std::string text = object.get();
    // A data view over a snapshot of the text delivers its bytes in turn.
    m_receiver = dataOver(std::make_shared<std::vector<std::uint8_t>>(text.begin(), text.end()))->newReader();
}

void RawFileSetter::visit(IFile& object) {
    object.set("", m_bytes.data(), m_bytes.size());
}

void RawFileAppender::visit(IFile& object) {
    object.append(m_bytes.data(), m_bytes.size());
}

std::unique_ptr<IStreamSender> setRawValue(IAbstractObject* object) {
    CreateRawValueSender command;
    object->accept(command);
    return command.take();
}

std::unique_ptr<IStreamReceiver> GetRawValue(IAbstractObject* object) {
    CreateRawValueReceiver command;
    object->accept(command);
    return command.take();
}

void SetRawValue(IAbstractObject* object, std::vector<std::uint8_t>&& bytes) {
    RawFileSetter command(std::move(bytes));
    object->accept(command);
}

void AppendRawValue(IAbstractObject* object, std::vector<std::uint8_t>&& bytes) {
    RawFileAppender command(std::move(bytes));
    object->accept(command);
}

}  // namespace ovtx::config::abstract_variable::lib_abstract_variable::v2
