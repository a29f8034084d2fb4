// The state file of a web service: the whole tree as JSON text, loaded when the service starts and
// written by its `AutoSaver`.
//
//   StateFile state("/var/lib/app/service.state", root);   // root: the service's shared object
//   state.load(logger, false);    // if the file exists; a failure is logged, the tree stays as it was
//   state.save();                 // throws on failure, for the saver to log and try again
//   state.saveIfChanged();        // writes only when the JSON differs from the last one written
//
// A save writes a temporary file beside the state file and renames it over, so a reader or a crash
// never meets half a file. Load and saves may run on different threads.
#pragma once

#include <memory>
#include <mutex>
#include <string>

#include "config/abstract_variable/abstract_object.h"
#include "log/i_logger.h"

namespace ovtx::network::restful_web_service::v3 {

class StateFile {
  public:
    StateFile(std::string path,
              std::shared_ptr<config::abstract_variable::lib_abstract_variable::v2::IAbstractObject> object);

    // Reads the file into the tree when it exists. All or nothing: the tree changes only when the
    // whole file was read and fits the tree (with `allowPartial`, members the tree lacks are
    // skipped and missing ones keep their value). Failures are logged at level 0 as
    // "Cannot load file <path> : <text>", among them "Cannot open file <path> for reading" and
    // "could not read file: <path>". True when the tree was loaded.
    bool load(log::i_logger::v0::ILogger& logger, bool allowPartial);

    // Writes the tree; throws "Cannot open file <path>.tmp for writing", "could not write file:
    // <path>.tmp" or "could not write file: <path>".
    void save();
    // Writes the tree when its JSON text differs from the last text read or written.
    void saveIfChanged();

    const std::string& path() const { return m_path; }

  private:
    std::string treeText() const;
    void write(const std::string& text);

    std::string m_path;
    std::shared_ptr<config::abstract_variable::lib_abstract_variable::v2::IAbstractObject> m_object;
    std::mutex m_mutex;      // guards m_lastText
    std::string m_lastText;  // empty until a load or a save
};

}  // namespace ovtx::network::restful_web_service::v3
