<?php
// bench/engines/php.php - PHP, as bench/worker.h describes. Ways: plain, every
// echo is a write; buffered, the page is gathered first. Whether pages are
// compiled once is for opcache, and the command line, to say.
chdir($argv[1]);
$buffered = $argv[2] === 'buffered';
$once = isset($argv[3]);

$v = $t = $q = [];
foreach (file('data.txt', FILE_IGNORE_NEW_LINES) as $line) {
    $fields = explode("\t", $line);
    switch ($fields[0]) {
        case 'V':
            $v[$fields[1]] = $fields[2];
            break;
        case 'T':
            $t[$fields[1]] = $fields[2];
            break;
        case 'Q':
            $query = $fields[1];
            break;
        case 'R':
            $q[$query][] = $fields; // a row's first column is its field 1
            break;
    }
}

function render(string $page, bool $buffered, array $v, array $t, array $q): void
{
    if ($buffered) {
        ob_start();
    }
    include $page;
    if ($buffered) {
        ob_end_flush();
    }
}

$page = getcwd() . '/page.php';
if ($once) {
    render($page, $buffered, $v, $t, $q);
    exit;
}
$answers = fopen('php://fd/3', 'w');
while (($line = fgets(STDIN)) !== false) {
    for ($i = (int)$line; $i > 0; $i--) {
        render($page, $buffered, $v, $t, $q);
    }
    fwrite($answers, "\n");
}
