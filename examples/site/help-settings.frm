<p>{?site.help.hostname?}</p>
<p>{?site.help.dhcp?}</p>
<ul>
<li>{?site.help.channel?}</li>
<li>{?site.help.security?}</li>
<?-- orv-check: ignore text-missing: shows how a text comes from the fallback database. ?><li>{?site.help.hidden?}</li>
</ul>
