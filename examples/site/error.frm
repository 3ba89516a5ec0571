<?-- Why a request is refused: the web program sets the status. ?><?setvariable var:page[title] `{?site.refused.title?}`?><?include header.frm?>
<p><?if eq $var:status 400 `{?site.refused.bad?}`?><?if eq $var:status 403 `{?site.refused.foreign?}`?><?if eq $var:status 404 `{?site.refused.missing?}`?><?if eq $var:status 405 `{?site.refused.method?}`?><?if eq $var:status 413 `{?site.refused.large?}`?><?if eq $var:status 415 `{?site.refused.type?}`?><?if eq $var:status 500 `<?if eq $var:reason newer `{?site.refused.newer?}` `{?site.refused.broken?}`?>`?></p>
<p><a href="<?echo $var:base?>overview.htm">{?site.refused.back?}</a> (<?echo $var:status?>)</p>
<?include footer.frm?>
