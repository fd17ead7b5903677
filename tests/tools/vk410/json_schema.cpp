// SPDX-License-Identifier: MIT
#include "tools/vk410/json_schema.h"
#include <QRegularExpression>
#include <algorithm>
#include <map>
#include <stdexcept>

namespace support {
namespace {

using nlohmann::json;

struct Context {
    const json& root;
    std::string at; // path of the value
};
using Check = std::string (*)(const json& value, const json& rule, const json& schema,
                              const Context& context);

std::string check(const json& value, const json& schema, const Context& context);

// Qt's, since g++ 12 warns about its own <regex> under address checks.
bool matches(const std::string& text, const std::string& pattern)
{
    return QRegularExpression{QString::fromStdString(pattern)}.match(QString::fromStdString(text)).hasMatch();
}

bool hasType(const json& value, const std::string& type)
{
    if (type == "integer")
        return value.is_number_integer();
    if (type == "number")
        return value.is_number();
    return type == value.type_name();
}

std::string checkType(const json& value, const json& rule, const json&, const Context& context)
{
    const json types = rule.is_array() ? rule : json::array({rule});
    for (const json& type : types) {
        if (hasType(value, type.get<std::string>()))
            return {};
    }
    return context.at + ": is no " + rule.dump();
}

std::string checkConst(const json& value, const json& rule, const json&, const Context& context)
{
    return value == rule ? "" : context.at + ": is not " + rule.dump();
}

std::string checkEnum(const json& value, const json& rule, const json&, const Context& context)
{
    return std::find(rule.begin(), rule.end(), value) != rule.end()
               ? ""
               : context.at + ": is none of " + rule.dump();
}

std::string checkMinimum(const json& value, const json& rule, const json&, const Context& context)
{
    return !value.is_number() || value >= rule ? "" : context.at + ": is below " + rule.dump();
}

std::string checkMaximum(const json& value, const json& rule, const json&, const Context& context)
{
    return !value.is_number() || value <= rule ? "" : context.at + ": is above " + rule.dump();
}

std::string checkPattern(const json& value, const json& rule, const json&, const Context& context)
{
    const bool fits = !value.is_string() || matches(value.get<std::string>(), rule.get<std::string>());
    return fits ? "" : context.at + ": does not match " + rule.dump();
}

std::string checkRequired(const json& value, const json& rule, const json&, const Context& context)
{
    for (const json& key : rule) {
        if (value.is_object() && !value.contains(key.get<std::string>()))
            return context.at + ": lacks " + key.dump();
    }
    return {};
}

// Schemas for a key: by its name and by patterns; the one for all others only where there is none.
std::string checkMember(const std::string& key, const json& value, const json& schema, const Context& context)
{
    bool isKnown = false;
    if (schema.contains("properties") && schema["properties"].contains(key)) {
        isKnown = true;
        if (std::string error = check(value, schema["properties"][key], context); !error.empty())
            return error;
    }
    if (schema.contains("patternProperties")) {
        for (const auto& [pattern, rule] : schema["patternProperties"].items()) {
            if (!matches(key, pattern))
                continue;
            isKnown = true;
            if (std::string error = check(value, rule, context); !error.empty())
                return error;
        }
    }
    if (!isKnown && schema.contains("additionalProperties"))
        return check(value, schema["additionalProperties"], context);
    return {};
}

std::string checkMembers(const json& value, const json&, const json& schema, const Context& context)
{
    if (!value.is_object())
        return {};
    for (const auto& [key, member] : value.items()) {
        if (std::string error = checkMember(key, member, schema, {context.root, context.at + "/" + key});
            !error.empty())
            return error;
    }
    return {};
}

std::string checkItems(const json& value, const json& rule, const json&, const Context& context)
{
    for (std::size_t i = 0; value.is_array() && i < value.size(); ++i) {
        if (std::string error = check(value[i], rule, {context.root, context.at + "/" + std::to_string(i)});
            !error.empty())
            return error;
    }
    return {};
}

std::string checkOneOf(const json& value, const json& rule, const json&, const Context& context)
{
    std::string errors;
    int fitting = 0;
    for (const json& alternative : rule) {
        const std::string error = check(value, alternative, context);
        fitting += error.empty() ? 1 : 0;
        errors += " (" + error + ")";
    }
    return fitting == 1 ? "" : context.at + ": " + std::to_string(fitting) + " alternatives fit" + errors;
}

std::string checkReference(const json& value, const json& rule, const json&, const Context& context)
{
    const json::json_pointer pointer{rule.get<std::string>().substr(1)};
    return check(value, context.root.at(pointer), context);
}

std::string ignore(const json&, const json&, const json&, const Context&)
{
    return {};
}

const std::map<std::string, Check> keywords{{"type", checkType},
                                            {"const", checkConst},
                                            {"enum", checkEnum},
                                            {"minimum", checkMinimum},
                                            {"maximum", checkMaximum},
                                            {"pattern", checkPattern},
                                            {"required", checkRequired},
                                            {"properties", checkMembers},
                                            {"patternProperties", checkMembers},
                                            {"additionalProperties", checkMembers},
                                            {"items", checkItems},
                                            {"oneOf", checkOneOf},
                                            {"$ref", checkReference},
                                            {"$schema", ignore},
                                            {"$defs", ignore},
                                            {"title", ignore},
                                            {"description", ignore}};

std::string check(const json& value, const json& schema, const Context& context)
{
    if (schema.is_boolean())
        return schema.get<bool>() ? "" : context.at + ": is not allowed";
    for (const auto& [keyword, rule] : schema.items()) {
        const auto known = keywords.find(keyword);
        if (known == keywords.end())
            throw std::logic_error{"schema keyword that is not checked: " + keyword};
        if (std::string error = known->second(value, rule, schema, context); !error.empty())
            return error;
    }
    return {};
}

} // namespace

std::string schemaError(const json& value, const json& schema)
{
    return check(value, schema, {schema, ""});
}

} // namespace support
