/* tests/vars_test.cpp - arrays, the web program's variables and deep trees. The fuzz
 * target variables compares random operations with a map. */
#include "vars/tree.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>

#include <new>
#include <utility>

#include "base/interpreter.h"
#include "tests/harness.h"
#include "vars/locals.h"

TEST(VarTree, ArraysKeepTheirBounds)
{
    struct {
        const char *index;
        uint32_t flags;
        const char *bounds; // smallest and greatest afterwards
    } const steps[] = {{"x", 1, "xx"},   {"5", 1, "55"},
                       {"-2", 1, "-25"}, {"007", 1, "-27"},
                       {"y", 1, "-27"},  {"", 1, "-27"},
                       {"+9", 0, "-29"}, {" -3", 0, "-39"},
                       {"-5", 1, "-59"}, {"99999999999", 1, "-52147483647"}};
    VarNode *root = nullptr;
    for (const auto &step : steps) {
        const VarNode *node = insertArray(&root, "l[", step.index, step.index, step.flags);
        ASSERT_NE(node, nullptr) << step.index;
        EXPECT_STREQ(node->value, step.index);
        EXPECT_EQ(std::string(findVar(root, "l[-")) + findVar(root, "l[+"), step.bounds);
    }
    EXPECT_STREQ(findVar(root, "l[7"), "007");
    EXPECT_STREQ(findVar(root, "l[0"), "");
    EXPECT_EQ(insertArray(&root, "l[", "7", "other", 0), nullptr);
    EXPECT_EQ(insertArray(&root, "", "7", "", 1), nullptr);
    EXPECT_EQ(insertArray(&root, "l[", "7", nullptr, 1), nullptr);
    EXPECT_EQ(insertArray(&root, "l[", nullptr, "", 1), nullptr);
    EXPECT_EQ(insertArray(&root, nullptr, "7", "", 1), nullptr);
    EXPECT_EQ(insertVar(&root, nullptr, "", 1), nullptr);
    EXPECT_EQ(insertVar(&root, "a", nullptr, 1), nullptr);
    EXPECT_EQ(findVar(root, nullptr), nullptr);
    insertVar(&root, "v[", "a variable", 1);
    insertArray(&root, "v[", "1", "one", 1);
    EXPECT_STREQ(findVar(root, "v["), "a variable");
    EXPECT_STREQ(findVar(root, "v[1"), "one");
    destroyTree(&root);
}

TEST(Locals, AreOneListThatReadsSearch)
{
    Host host;
    host.files = {{"t.htm", "<?echo $var:n7,$var:n1999,$var:none?>"}};
    useHost(&host);
    Interpreter *handle = Orv_Interpreter_Create(&hostCallbacks);
    for (int i = 0; i < 2000; ++i) {
        const std::string name = "n" + std::to_string(i % 1500 + 500);
        EXPECT_EQ(insertLocalVar(&handle->localVars, name.c_str(), std::to_string(i).c_str()), 0);
        EXPECT_EQ(findLocalVar(handle->localVars, "absent"), nullptr);
        const LocalVar *behind = handle->localVars->next;
        const char *before = findLocalVar(behind, name.c_str());
        EXPECT_EQ(before ? before : "none", i < 1500 ? "none" : std::to_string(i - 1500));
    }
    Orv_Interpreter_SetVariable(handle, "n7", "seven");
    EXPECT_EQ(runHandle(handle).page, "seven,1499,");
    EXPECT_STREQ(findLocalVar(handle->localVars, "n500"), "1500");
    EXPECT_EQ(findLocalVar(handle->localVars, nullptr), nullptr);
    destroyLocalVarList(&handle->localVars);
    EXPECT_EQ(handle->localVars, nullptr);
    EXPECT_EQ(runHandle(handle).page, ",,");
    for (const char *name : {static_cast<const char *>(nullptr), ""})
        EXPECT_EQ(insertLocalVar(&handle->localVars, name, "x"), ORV_VARIABLE_REFUSED);
    Orv_Interpreter_Destroy(handle);
}

// Of 40 entries each bit of byHand that is set stands for four that somebody else lays out.
TEST(Locals, MayBeLaidOutByHand)
{
    struct Described {
        char *name, *value;
        LocalVar *next;
    };
    for (unsigned byHand = 1; byHand < 1U << 10; ++byHand) {
        LocalVar *head = nullptr;
        for (unsigned i = 0; i < 40; ++i) {
            const std::string name = "n" + std::to_string(i % 15), value = std::to_string(i);
            if (byHand >> i / 4 & 1)
                head = reinterpret_cast<LocalVar *>(new (malloc(sizeof(Described))) Described{
                    strdup(name.c_str()), strdup(value.c_str()), head});
            else
                EXPECT_EQ(insertLocalVar(&head, name.c_str(), value.c_str()), ORV_VARIABLE_SET);
        }
        for (unsigned i = 25; i < 40; ++i) {
            const std::string name = "n" + std::to_string(i % 15);
            EXPECT_STREQ(findLocalVar(head, name.c_str()), std::to_string(i).c_str()) << byHand;
        }
        EXPECT_EQ(findLocalVar(head, "absent"), nullptr);
        LocalVar *first = std::exchange(head, head->next); // the one with the index, if any
        first->next = nullptr;
        EXPECT_EQ(insertLocalVar(&head, "n39", "again"), ORV_VARIABLE_SET);
        EXPECT_STREQ(findLocalVar(head, "n39"), "again");
        EXPECT_EQ(findLocalVar(head, "absent"), nullptr);
        destroyLocalVarList(&first);
        destroyLocalVarList(&head);
        EXPECT_EQ(head, nullptr);
    }
}

TEST(VarTree, MayBeDeeperThanAStack)
{
    VarNode *root = nullptr;
    for (size_t length = 1; length <= 60000; length += length < 59000 ? 40 : 1)
        insertVar(&root, std::string(length, 'a').c_str(), "v", 1);
    EXPECT_STREQ(findVar(root, std::string(60000, 'a').c_str()), "v");
    destroyTree(&root);
}
