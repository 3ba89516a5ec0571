// check_grammar.js EDITORS MODULES - the TextMate grammar of templates, by the tokenizer that
// editors use. HTML has a small grammar of its own here: what counts is that it goes on.
const fs = require('fs');
const path = require('path');
const [editors, modules] = process.argv.slice(2);
const load = (name) => require(path.join(modules, name));
const oniguruma = load('vscode-oniguruma');
const textmate = load('vscode-textmate');

const html = {
    scopeName: 'text.html.basic',
    patterns: [{
        name: 'meta.tag.html', begin: '</?(\\w+)', end: '>',
        beginCaptures: { 1: { name: 'entity.name.tag.html' } },
        patterns: [{ name: 'string.quoted.double.html', begin: '"', end: '"' }],
    }],
};
const lines = [
    '<p title="<?echo $var:user?>">{?site.skip?} a $1',
    '<?if eq $1 \'2\' `<b>$2 <?calc + 1 $$?></b>`?></p>',
    '<?-- a <?echo b?> {?c?} ?><i>',
    '<?repeat [ 1 3 ] "$0{?x?}"?><?echoes?>',
];
// Line, piece, and the scope that its first byte must or, with "!", must not have.
const rows = [
    [0, 'p title', 'entity.name.tag.html'], [0, 'echo', 'keyword.control.orv'],
    [0, 'echo', 'string.quoted.double.html'], [0, '$var', 'variable.other.orv'],
    [0, '">', 'string.quoted.double.html'], [0, '{?site', 'constant.other.text-field.orv'],
    [0, '$1', '!variable.parameter.value.orv'], [1, 'if eq', 'keyword.control.orv'],
    [1, '$1', 'variable.parameter.value.orv'], [1, "2'", 'string.quoted.single.orv'],
    [1, '$2', 'string.quoted.other.orv'], [1, 'calc +', 'keyword.control.orv'],
    [1, '$$', 'constant.character.escape.orv'], [1, 'p>', 'entity.name.tag.html'],
    [2, 'echo', 'comment.block.orv'], [2, '{?c', '!constant.other.text-field.orv'],
    [2, 'i>', 'entity.name.tag.html'], [3, 'repeat [', 'keyword.control.orv'],
    [3, '$0', 'string.quoted.double.orv'], [3, '{?x', 'constant.other.text-field.orv'],
    [3, 'echoes', '!keyword.control.orv'],
];

// And the word of each command that there is.
const table = fs.readFileSync(path.join(editors, '../grammar/commands.h'), 'utf8');
for (const [, words, tail, sign] of table.matchAll(/^ {4}\{"([^"]+)", Tail::(\w+), '?(.)/gm)) {
    const more = { OPERATOR: ` ${sign}`, NAME: ' var:a', ELEMENT: ' var:a' }[tail] ?? '';
    rows.push([lines.length, words, 'keyword.control.orv']);
    lines.push(`<?${words}${more} x?>`);
}
if (lines.length < 24) {
    console.log('no commands found');
    process.exitCode = 1;
}

async function main() {
    const wasm = fs.readFileSync(path.join(modules, 'vscode-oniguruma/release/onig.wasm'));
    await oniguruma.loadWASM(wasm.buffer.slice(wasm.byteOffset, wasm.byteOffset + wasm.byteLength));
    const file = path.join(editors, 'vscode/syntaxes/orv.tmLanguage.json');
    const registry = new textmate.Registry({
        onigLib: Promise.resolve({
            createOnigScanner: (patterns) => new oniguruma.OnigScanner(patterns),
            createOnigString: (text) => new oniguruma.OnigString(text),
        }),
        loadGrammar: async (scope) =>
            scope === 'text.html.basic' ? html : JSON.parse(fs.readFileSync(file, 'utf8')),
    });
    const grammar = await registry.loadGrammar('text.html.orv');
    const scopes = [];
    let state = textmate.INITIAL;
    for (const line of lines) {
        const result = grammar.tokenizeLine(line, state);
        state = result.ruleStack;
        scopes.push((at) => result.tokens.find((t) => t.startIndex <= at && at < t.endIndex).scopes);
    }
    for (const [line, piece, scope] of rows) {
        const found = scopes[line](lines[line].indexOf(piece));
        const wanted = !scope.startsWith('!');
        if (found.includes(scope.replace('!', '')) !== wanted) {
            console.log(`${line} ${piece}: ${found.join(' ')}, not ${scope}`);
            process.exitCode = 1;
        }
    }
    for (const name of ['package.json', 'language-configuration.json'])
        JSON.parse(fs.readFileSync(path.join(editors, 'vscode', name), 'utf8'));
}
main();
