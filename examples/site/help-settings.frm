<p>{?site.help.hostname?}</p>
<p>{?site.help.dhcp?}</p>
<ul>
<li>{?site.help.channel?}</li>
<li>{?site.help.security?}</li>
<li>{?site.help.hidden?}</li>
</ul>
