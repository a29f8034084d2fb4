#include "config/abstract_variable/object_construction.h"

#include <algorithm>

namespace ovtx::config::abstract_variable::lib_abstract_variable::v2 {

namespace {

class Struct : public IStruct {
  public:
    Struct(std::function<ObjectFactory(const std::string&)> child, TypeFunction<StructType> type)
        : m_child(std::move(child)), m_type(std::move(type)) {}
    TypeFunction<StructType> getTypeFunction() const override { return m_type; }
    ObjectFactory getChild(const std::string& name) override { return m_child(name); }

  private:
    std::function<ObjectFactory(const std::string&)> m_child;
    TypeFunction<StructType> m_type;
};

class EnumVar : public IEnum {
  public:
    EnumVar(std::function<std::string()> get, std::function<void(const std::string&)> set,
            TypeFunction<EnumType> type)
        : m_get(std::move(get)), m_set(std::move(set)), m_type(std::move(type)) {}
    TypeFunction<EnumType> getTypeFunction() const override { return m_type; }
    std::string get() override { return m_get(); }
    void set(const std::string& name) override { m_set(name); }

  private:
    std::function<std::string()> m_get;
    std::function<void(const std::string&)> m_set;
    TypeFunction<EnumType> m_type;
};

class Data : public IData {
  public:
    Data(std::function<std::unique_ptr<IStreamSender>()> newWriter,
         std::function<std::unique_ptr<IStreamReceiver>()> newReader, TypeFunction<DataType> type)
        : m_newWriter(std::move(newWriter)), m_newReader(std::move(newReader)), m_type(std::move(type)) {}
    TypeFunction<DataType> getTypeFunction() const override { return m_type; }
    std::unique_ptr<IStreamSender> newWriter() override { return m_newWriter(); }
    std::unique_ptr<IStreamReceiver> newReader() override { return m_newReader(); }

  private:
    std::function<std::unique_ptr<IStreamSender>()> m_newWriter;
    std::function<std::unique_ptr<IStreamReceiver>()> m_newReader;
    TypeFunction<DataType> m_type;
};

class VectorAppender : public IStreamSender {
  public:
    explicit VectorAppender(std::shared_ptr<std::vector<std::uint8_t>> bytes) : m_bytes(std::move(bytes)) {
        m_bytes->clear();
    }
    std::size_t send(const std::uint8_t* bytes, std::size_t size) override {
        m_bytes->insert(m_bytes->end(), bytes, bytes + size);
        return size;
    }

  private:
    std::shared_ptr<std::vector<std::uint8_t>> m_bytes;
};

class SnapshotReader : public IStreamReceiver {
  public:
    explicit SnapshotReader(std::vector<std::uint8_t> bytes) : m_bytes(std::move(bytes)) {}
    std::size_t receive(std::uint8_t* buffer, std::size_t size) override {
        const std::size_t count = std::min(size, m_bytes.size() - m_position);
        std::copy_n(m_bytes.data() + m_position, count, buffer);  // no memcpy: an empty vector has no data
        m_position += count;
        return count;
    }

  private:
    std::vector<std::uint8_t> m_bytes;
    std::size_t m_position = 0;
};

}  // namespace

EnumType enumTypeOf(const IEnumDecl& decl) {
    EnumType type;
    for (std::int32_t value : decl.values()) {
        type.choices.push_back(decl.toString(value));
    }
    return type;
}

std::unique_ptr<IStruct> newStruct(std::function<ObjectFactory(const std::string&)> child,
                                   TypeFunction<StructType> type) {
    return std::make_unique<Struct>(std::move(child), std::move(type));
}

std::unique_ptr<IEnum> newEnumVar(std::function<std::string()> get,
                                  std::function<void(const std::string&)> set, TypeFunction<EnumType> type) {
    return std::make_unique<EnumVar>(std::move(get), std::move(set), std::move(type));
}

std::unique_ptr<IData> newData(std::function<std::unique_ptr<IStreamSender>()> newWriter,
                               std::function<std::unique_ptr<IStreamReceiver>()> newReader,
                               TypeFunction<DataType> type) {
    return std::make_unique<Data>(std::move(newWriter), std::move(newReader), std::move(type));
}

std::unique_ptr<IData> dataOver(std::shared_ptr<std::vector<std::uint8_t>> bytes) {
    static const TypeFunction<DataType> kType = constantType(DataType{});
    return newData([bytes] { return std::make_unique<VectorAppender>(bytes); },
                   [bytes] { return std::make_unique<SnapshotReader>(*bytes); }, kType);
}

}  // namespace ovtx::config::abstract_variable::lib_abstract_variable::v2
