#include "config/abstract_variable/variable_path.h"

#include <algorithm>
#include <charconv>
#include <limits>
#include <stdexcept>

#include "config/abstract_variable/object_construction.h"
#include "config/abstract_variable/visitors.h"

namespace ovtx::config::abstract_variable::lib_abstract_variable::v2 {

namespace {

using abstract_type::v1::NamedType;

constexpr const char* kWildcard = "Idx";
constexpr const char* kSelf = ".";
constexpr const char* kParameter = "Param";
constexpr const char* kReturn = "Return";
constexpr const char* kConfiguration = "_configuration_";
constexpr const char* kState = "_state_";
constexpr const char* kUnionType = "_type_";
constexpr const char* kUnionValue = "_value_";

bool isDigits(const std::string& segment) {
    return !segment.empty() &&
           std::all_of(segment.begin(), segment.end(), [](char c) { return c >= '0' && c <= '9'; });
}

bool isElementSegment(const std::string& segment) {
    return segment == kWildcard || isDigits(segment);
}

// Takes the front segment off.
std::string take(std::deque<std::string>& segments) {
    std::string front = std::move(segments.front());
    segments.pop_front();
    return front;
}

const NamedType* findNamed(const std::vector<NamedType>& list, const std::string& name) {
    const auto found =
        std::find_if(list.begin(), list.end(), [&](const NamedType& named) { return named.name == name; });
    return found == list.end() ? nullptr : &*found;
}

// The type reached by the segments left after a constructable map's element segment.
const AbstractType* constructableElementStep(const ConstructableObjectMapType& record,
                                             std::deque<std::string>& segments, AbstractType& scratch) {
    if (segments.empty()) {
        scratch = StructType{{{kConfiguration, *record.configuration}, {kState, *record.state}}};
        return &scratch;
    }
    const std::string next = take(segments);
    if (next == kConfiguration) {
        scratch = ReadOnlyType{*record.configuration};
        return &scratch;
    }
    if (next == kState) {
        return &*record.state;
    }
    throw AbstractVariableException(
        std::string("The only allowed path after a constructable object map element are '") + kWildcard +
        "/_configuration_' or '" + kWildcard + "/_state_'");
}

// One step of the type walker from `type`: the next type, or null when the walk ends at `type`.
// A type that the step makes rather than finds is stored in `scratch`.
const AbstractType* typeStep(const AbstractType& type, std::deque<std::string>& segments, bool keepReadOnly,
                             AbstractType& scratch) {
    while (!segments.empty() && segments.front() == kSelf) {
        segments.pop_front();
    }
    if (type.is<ReadOnlyType>()) {
        if (segments.empty() && keepReadOnly) {
            return nullptr;
        }
        return &*type.get<ReadOnlyType>().underlying;
    }
    if (segments.empty()) {
        return nullptr;
    }
    switch (type.tag()) {
        case abstract_type::v1::tag::kVector:
        case abstract_type::v1::tag::kMap:
        case abstract_type::v1::tag::kMapStr: {
            if (!isElementSegment(take(segments))) {
                throw AbstractVariableException(
                    std::string("The only allowed path after a container element is '") + kWildcard +
                    "' or an integer value");
            }
            if (type.is<VectorType>()) {
                return &*type.get<VectorType>().element;
            }
            return type.is<MapType<std::int32_t>>() ? &*type.get<MapType<std::int32_t>>().element
                                                    : &*type.get<MapType<std::string>>().element;
        }
        case abstract_type::v1::tag::kConstructableObjectMap:
            if (!isElementSegment(take(segments))) {
                throw AbstractVariableException(
                    std::string("The only allowed path after a container element is ") + kWildcard);
            }
            return constructableElementStep(type.get<ConstructableObjectMapType>(), segments, scratch);
        case abstract_type::v1::tag::kFunction: {
            const auto& record = type.get<FunctionType>();
            const std::string next = take(segments);
            if (next == kParameter) {
                return &*record.parameter;
            }
            if (next == kReturn) {
                return &*record.returnType;
            }
            throw AbstractVariableException(next +
                                            " is not a valid value in a Function, next element must be " +
                                            kParameter + " or " + kReturn);
        }
        case abstract_type::v1::tag::kStruct: {
            const std::string next = take(segments);
            const NamedType* child = findNamed(type.get<StructType>().children, next);
            if (child == nullptr) {
                throw AbstractVariableException(next + " is not a valid value in this Struct");
            }
            return &*child->type;
        }
        case abstract_type::v1::tag::kUnion: {
            const auto& record = type.get<UnionType>();
            const std::string next = take(segments);
            if (next == kUnionType) {
                EnumType names;
                for (const auto& alternative : record.valueTypes) {
                    names.choices.push_back(alternative.name);
                }
                scratch = std::move(names);
                return &scratch;
            }
            if (next != kUnionValue) {
                throw AbstractVariableException(
                    "Only '_type_' and '_value_' are allowed at the beginning of an Union");
            }
            const std::string name = segments.empty() ? std::string() : take(segments);
            const NamedType* alternative = findNamed(record.valueTypes, name);
            if (alternative == nullptr) {
                throw AbstractVariableException(name + " is not a valid value in this Union");
            }
            return &*alternative->type;
        }
        default:
            // Leaves, enums, files and data have nothing below them.
            throw AbstractVariableException("");
    }
}

// A decimal number that fills the whole segment.
bool parseIndex(const std::string& segment, std::int32_t& value) {
    const char* end = segment.data() + segment.size();
    const auto [stop, error] = std::from_chars(segment.data(), end, value);
    return error == std::errc() && stop == end && !segment.empty();
}

std::int32_t parseIndexOrFail(const std::string& segment, const char* text) {
    std::int32_t value = 0;
    if (!parseIndex(segment, value)) {
        throw AbstractVariableException(text + segment);
    }
    return value;
}

}  // namespace

AbstractType FindTypeAtPath(const AbstractType& root, std::deque<std::string> segments, bool keepReadOnly) {
    AbstractType made;
    const AbstractType* next = typeStep(root, segments, keepReadOnly, made);
    if (next == nullptr) {
        return root;
    }
    return FindTypeAtPath(*next, std::move(segments), keepReadOnly);
}

std::string VariableURLChild::url() const {
    std::string joined;
    for (std::size_t index = 0; index < m_segments->size(); ++index) {
        joined += (index == 0 ? "" : "/") + (*m_segments)[index];
    }
    return joined;
}

void VariableURLChild::invalidResource() const {
    throw AbstractVariableException("Invalid resource: " + url());
}

void VariableURLChild::advance(ObjectFactory result, std::size_t consumed) {
    m_result = std::move(result);
    m_consumed = consumed;
}

void VariableURLChild::visit(IUnion& object) {
    const std::string& first = segment();
    if (first == kUnionType) {
        // An enum over the union's choice, with the same choices as the type walker gives.
        EnumType names;
        for (const auto& alternative : object.getTypeFunction()()->valueTypes) {
            names.choices.push_back(alternative.name);
        }
        TypeFunction<EnumType> type = constantType(std::move(names));
        advance(
            [current = m_current, type]() -> std::unique_ptr<IAbstractObject> {
                auto view = std::make_shared<Converted<IUnion>>(convertTo<IUnion>(current));
                return newEnumVar([view] { return (*view)->getCurrentType(); },
                                  [view](const std::string& name) { (*view)->setCurrentType(name); }, type);
            },
            1);
        return;
    }
    if (first != kUnionValue) {
        invalidResource();
    }
    if (!hasSegment(1)) {
        throw AbstractVariableException("Non accessible, incomplete URL : " + url());
    }
    const std::string current = object.getCurrentType();
    if (segment(1) != current) {
        throw AbstractVariableException("Invalid type value in URL : " + url() + ". Current type is " +
                                        current);
    }
    advance(object.getValue(current), 2);
}

void VariableURLChild::visit(IReadOnly& object) {
    advance(object.getUnderlying(), 0);
}

void VariableURLChild::visit(IStruct& object) {
    advance(object.getChild(segment()), 1);
}

void VariableURLChild::visit(IMap<std::string>& object) {
    advance(object.get(segment()), 1);
}

void VariableURLChild::visit(IMap<std::int32_t>& object) {
    advance(object.get(parseIndexOrFail(segment(), "Invalid map index: ")), 1);
}

void VariableURLChild::visit(IVector& object) {
    // Paths count vector elements from 1; the lowest int32 has no element index below it.
    constexpr const char* kInvalid = "Invalid vector index: ";
    const std::int32_t position = parseIndexOrFail(segment(), kInvalid);
    if (position == std::numeric_limits<std::int32_t>::min()) {
        throw AbstractVariableException(kInvalid + segment());
    }
    advance(object.get(position - 1), 1);
}

void VariableURLChild::visit(IConstructableObjectMap& object) {
    const std::int32_t id = parseIndexOrFail(segment(), "Invalid map index: ");
    const std::string onlyTwo = ". Only _configuration_ and _state_ are valid resources.";
    if (!hasSegment(1)) {
        throw AbstractVariableException("Invalid resource: " + url() + onlyTwo);
    }
    const std::string& part = segment(1);
    if (part == kConfiguration) {
        TypedFactory<IReadOnly> configuration = object.get(id).first;
        advance([configuration]() -> std::unique_ptr<IAbstractObject> { return configuration(); }, 2);
    } else if (part == kState) {
        advance(object.get(id).second, 2);
    } else {
        throw AbstractVariableException("Invalid resource: " + url() + onlyTwo);
    }
}

void VariableURLChild::visit(IEnum&) {
    invalidResource();
}
void VariableURLChild::visit(IData&) {
    invalidResource();
}
void VariableURLChild::visit(IFile&) {
    invalidResource();
}
void VariableURLChild::visit(IFunction&) {
    invalidResource();
}
void VariableURLChild::visit(IVariable<bool>&) {
    invalidResource();
}
void VariableURLChild::visit(IVariable<std::int64_t>&) {
    invalidResource();
}
void VariableURLChild::visit(IVariable<std::int32_t>&) {
    invalidResource();
}
void VariableURLChild::visit(IVariable<std::string>&) {
    invalidResource();
}

ObjectFactory FindObjectAtPath(const ObjectFactory& root, const std::vector<std::string>& segments) {
    ObjectFactory current = root;
    std::size_t position = 0;
    while (position < segments.size()) {
        std::unique_ptr<IAbstractObject> view = current();
        VariableURLChild step(segments, position, current);
        view->accept(step);
        current = step.result();
        position += step.consumed();
    }
    return current;
}

}  // namespace ovtx::config::abstract_variable::lib_abstract_variable::v2
