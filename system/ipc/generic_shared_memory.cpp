#include "system/ipc/generic_shared_memory.h"

#include <cstring>
#include <stdexcept>

namespace ovtx::system::ipc::v2 {
namespace {

std::string withReason(const std::string& text, int error) {
    return text + ": " + std::strerror(error);
}

}  // namespace

GenericSharedMemory::GenericSharedMemory(const std::string& name, std::uint32_t size) {
    const std::string mappingName = name + "_mapping";
    const std::string mutexName = name + "_mutex";
    const std::string sizeText = " (size: " + std::to_string(size) + ")";

    m_mapping = NamedMapping::createOrJoin(mappingName, size);
    if (!m_mapping.valid()) {
        throw std::runtime_error(
            withReason("Can't create file mapping with name " + mappingName + sizeText, m_mapping.error()));
    }
    m_mutex = NamedMutex::createOrJoin(mutexName);
    if (!m_mutex.valid()) {
        throw std::runtime_error(withReason("Can't create mutex with name " + mutexName, m_mutex.error()));
    }
    m_view = MappedView::map(m_mapping, size, MappedView::Access::ReadWrite);
    if (!m_view.valid()) {
        throw std::runtime_error(
            withReason("Can't map view of file for SharedMem " + mappingName + sizeText, m_view.error()));
    }
}

GenericSharedMemory::~GenericSharedMemory() {
    m_view.unmap();
    m_mapping.close();
    m_mutex.close();
}

void GenericSharedMemory::lock() {
    m_mutex.lock();
}

bool GenericSharedMemory::lockFor(std::chrono::milliseconds timeout) {
    const WaitResult result = m_mutex.lockFor(timeout);
    return result == WaitResult::Acquired || result == WaitResult::Abandoned;
}

void GenericSharedMemory::unlock() {
    m_mutex.unlock();
}

}  // namespace ovtx::system::ipc::v2
