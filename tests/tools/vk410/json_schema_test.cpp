// SPDX-License-Identifier: MIT
#include "tools/vk410/json_schema.h"
#include <gtest/gtest.h>

namespace {

using nlohmann::json;
using support::schemaError;

struct SchemaCase {
    const char* name;
    const char* schema;
    const char* good;
    const char* bad;
};

class JsonSchema : public testing::TestWithParam<SchemaCase> {};

TEST_P(JsonSchema, TellsGoodFromBad)
{
    const json schema = json::parse(GetParam().schema);
    EXPECT_EQ(schemaError(json::parse(GetParam().good), schema), "");
    EXPECT_NE(schemaError(json::parse(GetParam().bad), schema), "");
}

INSTANTIATE_TEST_SUITE_P(
    All, JsonSchema,
    testing::Values(SchemaCase{"Type", R"({"type":"integer"})", "1", "1.5"},
                    SchemaCase{"Types", R"({"type":["integer","null"]})", "null", R"("1")"},
                    SchemaCase{"Const", R"({"const":"a"})", R"("a")", R"("b")"},
                    SchemaCase{"Enum", R"({"enum":["a","b"]})", R"("b")", R"("c")"},
                    SchemaCase{"Minimum", R"({"minimum":-3})", "-3", "-4"},
                    SchemaCase{"Maximum", R"({"maximum":7})", "7", "8"},
                    SchemaCase{"Pattern", R"({"pattern":"^[0-9]+$"})", R"("12")", R"("1x")"},
                    SchemaCase{"Required", R"({"required":["a"]})", R"({"a":1})", R"({"b":1})"},
                    SchemaCase{"Properties", R"({"properties":{"a":{"type":"string"}}})", R"({"a":"","b":1})",
                               R"({"a":1})"},
                    SchemaCase{"Patterns", R"({"patternProperties":{"^x":{"type":"string"}}})",
                               R"({"x1":"","b":1})", R"({"x1":1})"},
                    SchemaCase{"NoOthers", R"({"properties":{"a":{}},"additionalProperties":false})",
                               R"({"a":1})", R"({"b":1})"},
                    SchemaCase{"Others", R"({"properties":{"a":{}},"additionalProperties":{"type":"null"}})",
                               R"({"b":null})", R"({"b":1})"},
                    SchemaCase{"Items", R"({"items":{"type":"boolean"}})", "[true]", "[true,1]"},
                    SchemaCase{"OneOf", R"({"oneOf":[{"minimum":5},{"maximum":2}]})", "6", "3"},
                    SchemaCase{"OneOfNotTwo", R"({"oneOf":[{"minimum":5},{"minimum":7}]})", "6", "8"},
                    SchemaCase{"Reference", R"({"$defs":{"x":{"const":1}},"$ref":"#/$defs/x"})", "1", "2"},
                    SchemaCase{"Nested", R"({"properties":{"a":{"items":{"const":1}}}})", R"({"a":[1]})",
                               R"({"a":[2]})"}),
    [](const auto& test) { return test.param.name; });

TEST(JsonSchemaKeywords, RefusesARuleThatItWouldNotCheck)
{
    EXPECT_THROW((void)schemaError(json(1), json::parse(R"({"multipleOf":2})")), std::logic_error);
}

} // namespace
