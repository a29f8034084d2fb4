#include "network/restful_web_service/state_file.h"

#include <json/reader.h>
#include <json/writer.h>

#include <array>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <utility>

#include "config/abstract_variable/object_construction.h"
#include "config/abstract_variable/value_json.h"
#include "config/abstract_variable/visitors.h"

namespace ovtx::network::restful_web_service::v3 {

namespace {

namespace av = config::abstract_variable::lib_abstract_variable::v2;

constexpr std::size_t kReadBlock = 100000;

std::string readWholeFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in.is_open()) {
        throw std::runtime_error("Cannot open file " + path + " for reading");
    }
    std::string text;
    std::array<char, kReadBlock> block;
    while (in.read(block.data(), block.size()) || in.gcount() > 0) {
        text.append(block.data(), static_cast<std::size_t>(in.gcount()));
    }
    if (in.bad()) {
        throw std::runtime_error("could not read file: " + path);
    }
    return text;
}

Json::Value parse(const std::string& text) {
    Json::Value json;
    Json::Reader reader;
    if (!reader.parse(text, json, false)) {
        throw std::runtime_error(reader.getFormattedErrorMessages());
    }
    return json;
}

// Unserialises into a free-standing copy first, so that a file that does not fit leaves the tree
// untouched; a tree with a variety that has no free-standing form is written directly.
void assign(const Json::Value& json, av::IAbstractObject& object, bool allowPartial) {
    const av::AbstractType type = av::getObjectType(object);
    std::unique_ptr<av::IAbstractObject> scratch;
    try {
        scratch = av::newInstance(type)();
    } catch (const std::exception&) {
        av::UnserializeValueFromJson(json, &object, type, allowPartial, false);
        return;
    }
    av::UnserializeValueFromJson(json, scratch.get(), type, allowPartial, false);
    av::copyValue(*scratch, object, type);
}

}  // namespace

StateFile::StateFile(std::string path, std::shared_ptr<av::IAbstractObject> object)
    : m_path(std::move(path)), m_object(std::move(object)) {}

bool StateFile::load(log::i_logger::v0::ILogger& logger, bool allowPartial) {
    std::error_code error;
    if (!std::filesystem::exists(m_path, error)) {
        return false;
    }
    try {
        assign(parse(readWholeFile(m_path)), *m_object, allowPartial);
        const std::string text = treeText();
        std::lock_guard lock(m_mutex);
        m_lastText = text;
        return true;
    } catch (const std::exception& e) {
        logger.Log(0, "Cannot load file %s : %s", m_path.c_str(), e.what());
        return false;
    }
}

void StateFile::save() {
    write(treeText());
}

void StateFile::saveIfChanged() {
    const std::string text = treeText();
    {
        std::lock_guard lock(m_mutex);
        if (text == m_lastText) {
            return;
        }
    }
    write(text);
}

std::string StateFile::treeText() const {
    const av::AbstractType type = av::getObjectType(*m_object);
    return Json::StyledWriter().write(av::SerializeValueToJson(m_object.get(), type, {}));
}

void StateFile::write(const std::string& text) {
    const std::string temporary = m_path + ".tmp";
    {
        std::ofstream out(temporary, std::ios::binary | std::ios::trunc);
        if (!out.is_open()) {
            throw std::runtime_error("Cannot open file " + temporary + " for writing");
        }
        out.write(text.data(), static_cast<std::streamsize>(text.size()));
        out.close();
        if (!out) {
            throw std::runtime_error("could not write file: " + temporary);
        }
    }
    std::error_code error;
    std::filesystem::rename(temporary, m_path, error);
    if (error) {
        std::filesystem::remove(temporary, error);
        throw std::runtime_error("could not write file: " + m_path);
    }
    std::lock_guard lock(m_mutex);
    m_lastText = text;
}

}  // namespace ovtx::network::restful_web_service::v3
