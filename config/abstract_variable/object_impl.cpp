#include "config/abstract_variable/object_impl.h"

#include <algorithm>
#include <cstring>
#include <mutex>
#include <stdexcept>

#include "config/abstract_variable/visitors.h"

namespace ovtx::config::abstract_variable::lib_abstract_variable::v2 {

namespace {

std::shared_ptr<const std::map<std::string, std::size_t>> indexOf(const CDynStruct::Children& children) {
    auto index = std::make_shared<std::map<std::string, std::size_t>>();
    for (std::size_t position = 0; position < children.size(); ++position) {
        index->emplace(std::get<0>(children[position]), position);
    }
    return index;
}

// The record of a struct made from its children's own records, once, on first demand.
TypeFunction<StructType> typeFromChildren(std::shared_ptr<const CDynStruct::Children> children) {
    struct Cache {
        std::once_flag once;
        std::shared_ptr<const StructType> record;
    };
    auto cache = std::make_shared<Cache>();
    return [cache, children] {
        std::call_once(cache->once, [&] {
            StructType record;
            for (const auto& [name, factory] : *children) {
                record.children.push_back({name, getObjectType(*factory())});
            }
            cache->record = std::make_shared<const StructType>(std::move(record));
        });
        return cache->record;
    };
}

}  // namespace

CDynStruct::CDynStruct(Children children, TypeFunction<StructType> type)
    : m_index(indexOf(children)),
      m_children(std::make_shared<const Children>(std::move(children))),
      m_type(std::move(type)) {}

CDynStruct::CDynStruct(Children children)
    : m_index(indexOf(children)),
      m_children(std::make_shared<const Children>(std::move(children))),
      m_type(typeFromChildren(m_children)) {}

ObjectFactory CDynStruct::getChild(const std::string& name) {
    auto found = m_index->find(name);
    if (found == m_index->end()) {
        throw AbstractVariableException("No such variable: " + name);
    }
    return std::get<1>((*m_children)[found->second]);
}

ObjectFactory CDynStruct::factory() const {
    CDynStruct copy = *this;
    return [copy]() -> std::unique_ptr<IAbstractObject> { return std::make_unique<CDynStruct>(copy); };
}

void VectorImpl::resize(std::int32_t size) {
    if (m_resize(size) != size) {
        throw AbstractVariableException("Cannot resize vector");
    }
}

std::unique_ptr<IFile> FileImpl::over(std::shared_ptr<FileContent> content) {
    static const TypeFunction<FileType> kType = constantType(FileType{});
    return std::make_unique<FileImpl>(
        [content](const std::string& mimeType, const std::uint8_t* bytes, std::size_t size) {
            content->mimeType = mimeType;
            content->bytes.assign(bytes, bytes + size);
        },
        [content](const std::uint8_t* bytes, std::size_t size) {
            content->bytes.insert(content->bytes.end(), bytes, bytes + size);
        },
        [content] { return *content; },
        [content](std::uint8_t* buffer, std::size_t size, std::uint64_t position) -> std::size_t {
            if (position >= content->bytes.size()) {
                return 0;
            }
            const std::size_t count = std::min<std::size_t>(size, content->bytes.size() - position);
            std::memcpy(buffer, content->bytes.data() + position, count);
            return count;
        },
        [content] { return content->mimeType; }, kType);
}

}  // namespace ovtx::config::abstract_variable::lib_abstract_variable::v2
