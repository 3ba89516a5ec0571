<?-- The top of every page, down to its heading and what has become of a form. A page sets
     page[id], its name in the menu, page[title], page[told], what follows a message, and page[form] to "form" when it has a form
     with that id, which then comes along when the language changes. These are array
     elements because a request variable would hide a plain variable of the same name. ?><!DOCTYPE html>
<html lang="{?site.lang?}" dir="{?site.dir?}">
<head>
<meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
<title><?if neq $var:wrong '' `{?site.error?}: `?><?print $var:page[title]?> - Fjord R4</title>
<link rel="icon" href="data:image/svg+xml;base64,<?base64 icon.svg?>">
<link rel="stylesheet" href="<?echo $var:base?>style.css">
<script src="<?echo $var:base?>live.js" defer></script>
<?print $var:page[head]?></head>
<body>
<a class="skip" href="#main">{?site.skip?}</a>
<header>
<div class="top">
<p class="brand">Fjord R4<?if neq $var:outside 1 ` <span><bdi><?query "select value from setting where name = 'hostname'"?></bdi></span>`?></p>
<?-- In front of the languages, which stay where they are when it goes: a second click
     presses none of them. ?><?if neq $var:token '' `<form class="out" action="<?echo $var:base?>logout.htm" method="post">
<input type="hidden" name="token" value="<?echo $var:token?>">
<button>{?site.logout.title?}</button></form>
`?><?-- Enter in a field presses the first button of the field's form. That is this one, which
     does what the form's own does, and no language's. ?><?if eq $var:page[form] form `<input class="default" type="submit" form="form" tabindex="-1" aria-hidden="true">
`?><nav class="languages" aria-label="{?site.languages?}">
<form id="languages" method="get"></form>
<button lang="en" name="lang" value="en" form="<?if eq $var:page[form] form form languages?>" formnovalidate<?-- orv-check: ignore
     text-compared: site.lang is the language's code, and nothing that is shown. ?><?if eq {?site.lang?} en ` aria-current="true"`?>>English</button>
<button lang="de" name="lang" value="de" form="<?if eq $var:page[form] form form languages?>" formnovalidate<?-- orv-check: ignore
     text-compared: the same. ?><?if eq {?site.lang?} de ` aria-current="true"`?>>Deutsch</button>
<button lang="el" name="lang" value="el" form="<?if eq $var:page[form] form form languages?>" formnovalidate<?-- orv-check: ignore
     text-compared: the same. ?><?if eq {?site.lang?} el ` aria-current="true"`?>>Ελληνικά</button>
</nav>
</div>
<?if neq $var:outside 1 `<?include menu.frm?>`?></header>
<main id="main">
<h1><?print $var:page[title]?></h1>
<?if neq $var:flash '' `<p class="saved" role="status"><?echo $var:flash?><?if neq $var:answer '' ` <bdi><?echo $var:answer?></bdi>`?><?print $var:page[told]?></p>
`?><?if eq <?error found ?> 1 `<?include errorbox.frm?>`?>
