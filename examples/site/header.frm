<?-- The top of every page, down to its heading. A page sets page[id], its name in
     the menu, and page[title] first. These are array elements because a request
     variable would hide a plain variable of the same name. ?><!DOCTYPE html>
<html lang="{?site.lang?}">
<head>
<meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
<title><?print $var:page[title]?> - Fjord R4</title>
<link rel="icon" href="data:image/svg+xml;base64,<?base64 icon.svg?>">
<link rel="stylesheet" href="style.css">
</head>
<body>
<a class="skip" href="#main">{?site.skip?}</a>
<header>
<p class="brand">Fjord R4</p>
<nav class="languages" aria-label="{?site.languages?}">
<a href="?lang=en" lang="en" hreflang="en"<?if eq {?site.lang?} en ` aria-current="true"`?>>English</a>
<a href="?lang=de" lang="de" hreflang="de"<?if eq {?site.lang?} de ` aria-current="true"`?>>Deutsch</a>
</nav>
<?include menu.frm?></header>
<main id="main">
<h1><?print $var:page[title]?></h1>
