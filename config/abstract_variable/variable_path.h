// Variable paths: from the segments of a REST URL to a node of the tree.
//
// A path names a node by segments separated by "/". Two walkers read it. The type walker proves
// that a path is well formed and tells what lies at its end, without touching data; it also knows
// the wildcard "Idx" for any container element, the no-op ".", and "Param" and "Return" for a
// function's parameter and result, so that a client can describe an element that does not exist
// yet. The object walker reaches real data and knows none of these; it counts vector indices from
// 1, while JSON arrays and `IVector` count from 0.
//
//   AbstractType type = FindTypeAtPath(rootType, {"Points", "Idx", "X"}, true);   // an int32
//   ObjectFactory node = FindObjectAtPath(root, {"Points", "1", "X"});            // element 0's X
//   auto x = convertTo<IVariable<std::int32_t>>(node);
#pragma once

#include <cstddef>
#include <deque>
#include <string>
#include <vector>

#include "config/abstract_variable/abstract_object.h"

namespace ovtx::config::abstract_variable::lib_abstract_variable::v2 {

// The type at the end of `segments` below `root`. With `keepReadOnly` a read-only wrapper at the
// end of the path is the result itself; otherwise its underlying type is. A segment that the type
// does not allow fails with a text that says what is allowed there.
AbstractType FindTypeAtPath(const AbstractType& root, std::deque<std::string> segments, bool keepReadOnly);

// One step of the object walker: visiting the current object consumes one or two segments from
// `position` on (none for a read-only wrapper, which hands the same segment to what it wraps) and
// yields the factory of the next node.
class VariableURLChild : public IObjectVisitor {
  public:
    VariableURLChild(const std::vector<std::string>& segments, std::size_t position, ObjectFactory current)
        : m_segments(&segments), m_position(position), m_current(std::move(current)) {}

    std::size_t consumed() const { return m_consumed; }
    const ObjectFactory& result() const { return m_result; }

    void visit(IUnion& object) override;
    void visit(IEnum& object) override;
    void visit(IReadOnly& object) override;
    void visit(IData& object) override;
    void visit(IFile& object) override;
    void visit(IConstructableObjectMap& object) override;
    void visit(IMap<std::string>& object) override;
    void visit(IMap<std::int32_t>& object) override;
    void visit(IVector& object) override;
    void visit(IFunction& object) override;
    void visit(IVariable<bool>& object) override;
    void visit(IVariable<std::int64_t>& object) override;
    void visit(IVariable<std::int32_t>& object) override;
    void visit(IVariable<std::string>& object) override;
    void visit(IStruct& object) override;

  private:
    const std::string& segment(std::size_t offset = 0) const { return (*m_segments)[m_position + offset]; }
    bool hasSegment(std::size_t offset) const { return m_position + offset < m_segments->size(); }
    std::string url() const;
    [[noreturn]] void invalidResource() const;
    void advance(ObjectFactory result, std::size_t consumed);

    const std::vector<std::string>* m_segments;
    std::size_t m_position;
    std::size_t m_consumed = 0;
    ObjectFactory m_result;
    ObjectFactory m_current;
};

// The factory of the node at the end of `segments` below `root`. Failures of the containers
// ("No such variable: ", "such id does not exist" ...) pass through unchanged, some of them only
// when the factory is called.
ObjectFactory FindObjectAtPath(const ObjectFactory& root, const std::vector<std::string>& segments);

}  // namespace ovtx::config::abstract_variable::lib_abstract_variable::v2
