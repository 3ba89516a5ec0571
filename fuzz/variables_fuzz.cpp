/* fuzz/variables_fuzz.cpp - a handle's variables and arrays against plain maps.
 *
 * Each line of an input is one call: its first byte chooses which, the rest is
 * name=value. After each call the result, and at the end the whole tree, must
 * be as the maps say. */
#include <algorithm>
#include <map>
#include <set>
#include <sstream>
#include <string>

#include "fuzz/fuzz.h"
#include "base/interpreter.h"
#include "vars/locals.h"
#include "vars/tree.h"

using std::string;
using Texts = std::map<string, string>;

// Whether text is a number, which is clamped to 32 bits on any machine.
static bool readIndex(const string &text, int64_t *number)
{
    char *end;
    *number = std::clamp<int64_t>(strtoll(text.c_str(), &end, 10), INT32_MIN, INT32_MAX);
    return !*end;
}

static bool store(Texts *model, const string &key, const string &value, bool replace)
{
    if (key.empty() || (!replace && model->count(key) && model->at(key) != value))
        return false;
    (*model)[key] = value;
    return true;
}

// Whether the tree has a node without value for name: keys go on there in two ways.
static bool branchesAt(const Texts &model, const string &name)
{
    std::set<char> following;
    for (auto at = model.lower_bound(name); at != model.end() && at->first.starts_with(name); ++at)
        if (at->first.size() > name.size())
            following.insert(at->first[name.size()]);
    return !model.count(name) && following.size() > 1;
}

static bool storeElement(Texts *model, const string &name, const string &index, const string &value,
                         bool replace)
{
    int64_t number;
    const bool numeric = readIndex(index, &number);
    const string normal = numeric ? std::to_string(number) : index;
    const bool another = branchesAt(*model, name);
    const bool stored = store(model, name + normal, value, replace);
    for (const char sign : {'-', '+'}) {
        int64_t bound = 0;
        const auto old = model->find(name + sign);
        const bool known = old != model->end() && readIndex(old->second, &bound);
        const bool beyond = !known || (sign == '-' ? number < bound : number > bound);
        if (!another || (numeric && beyond))
            (*model)[name + sign] = normal;
    }
    return stored;
}

// Checks the nodes below parent, whose key is prefix, and takes the keys out of left.
static void checkTree(const VarNode *parent, const string &prefix, Texts *left)
{
    size_t children = 0;
    int last = 0;
    if (!parent)
        return;
    for (const VarNode *node = parent->firstChild; node; node = node->nextSibling, ++children) {
        const string key = prefix + node->label;
        MUST(last < static_cast<unsigned char>(node->label[0]));
        last = static_cast<unsigned char>(node->label[0]);
        MUST((node->hasValue != 0) == (node->value != nullptr));
        if (node->hasValue)
            MUST(left->count(key) && left->at(key) == node->value && left->erase(key));
        checkTree(node, key, left);
    }
    MUST(children >= (parent->hasValue ? 0U : prefix.empty() ? 1U : 2U));
}

static void checkLookup(VarNode *root, const Texts &model, const string &key)
{
    int32_t consumed;
    VarNode *parent;
    VarNode *insertAt;
    const VarNode *found = lookupNode(root, key.c_str(), &consumed, &parent, &insertAt);
    const auto expected = model.find(key);
    MUST((found != nullptr) == (expected != model.end()));
    MUST(!found || (expected->second == found->value && found == insertAt));
    MUST(consumed >= 0 && static_cast<size_t>(consumed) <= key.size());
    MUST(!found || static_cast<size_t>(consumed) == key.size());
    MUST((parent != nullptr) == (root != nullptr));
    MUST(findVar(root, key.c_str()) == (found ? found->value : nullptr));
}

// One call, and the same to the models.
static void call(Interpreter *handle, Texts *tree, Texts *locals, const string &line)
{
    const char operation = line.empty() ? 's' : line[0];
    const size_t equals = std::min(line.find('='), line.size());
    const string key = equals > 1 ? line.substr(1, equals - 1) : "";
    const string value = line.substr(std::min(equals + 1, line.size()));
    const size_t bracket = key.find('[');
    const string array = key.substr(0, bracket == string::npos ? 0 : bracket + 1);
    const string rest = key.substr(array.size());
    const bool replace = operation == 'v' || operation == 'a';
    if (operation == 'v' || operation == 'o') {
        const VarNode *node = insertVar(&handle->varTree, key.c_str(), value.c_str(), replace);
        MUST((node != nullptr) == store(tree, key, value, replace));
        MUST(!node || value == node->value);
    } else if ((operation == 'a' || operation == 'b') && !array.empty()) {
        const bool stored = storeElement(tree, array, rest, value, replace);
        MUST(stored == (insertArray(&handle->varTree, array.c_str(), rest.c_str(), value.c_str(),
                                    replace) != nullptr));
    } else if (operation == 'c') {
        locals->clear();
        MUST(Orv_Interpreter_ClearVariables(handle) == 0 && !handle->localVars);
    } else {
        bool stored = !array.empty() || !key.empty();
        if (!array.empty())
            storeElement(tree, array, rest.substr(0, rest.find(']')), value, true);
        else if (stored)
            (*locals)[key] = value;
        MUST(stored == (Orv_Interpreter_SetVariable(handle, key.c_str(), value.c_str()) == 0));
    }
    checkLookup(handle->varTree, *tree, key);
    const char *found = findLocalVar(handle->localVars, key.c_str());
    const auto local = locals->find(key);
    MUST(found ? local != locals->end() && local->second == found : local == locals->end());
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static constexpr InterpreterCallbacks callbacks = {
        [](Interpreter *, const char *) { return -1; },
        [](Interpreter *, int32_t, const char *, QueryRow **, int32_t *) { return -1; },
        [](Interpreter *, const char **) { return 0; }};
    systemRoot = "/dev/null"; // no file is below it
    Interpreter *handle = Orv_Interpreter_Create(&callbacks);
    Texts tree;
    Texts locals;
    std::istringstream lines(string(reinterpret_cast<const char *>(data), size));
    for (string line; std::getline(lines, line);)
        call(handle, &tree, &locals, line.substr(0, line.find('\0')));
    checkTree(handle->varTree, "", &tree);
    MUST(tree.empty());
    for (const auto &[name, value] : locals) {
        const char *found = findLocalVar(handle->localVars, name.c_str());
        MUST(found && value == found);
    }
    Orv_Interpreter_Destroy(handle);
    return 0;
}
