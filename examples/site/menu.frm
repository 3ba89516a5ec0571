<nav class="menu" aria-label="{?site.menu?}">
<ul>
<li><a href="overview.htm"<?if eq $var:page[id] overview ` aria-current="page"`?>>{?site.overview.title?}</a></li>
<li><a href="devices.htm"<?if eq $var:page[id] devices ` aria-current="page"`?>>{?site.devices.title?}</a></li>
<li><a href="traffic.htm"<?if eq $var:page[id] traffic ` aria-current="page"`?>>{?site.traffic.title?}</a></li>
<li><a href="events.htm"<?if eq $var:page[id] events ` aria-current="page"`?>>{?site.events.title?}</a></li>
<li><a href="settings.htm"<?if eq $var:page[id] settings ` aria-current="page"`?>>{?site.settings.title?}</a></li>
</ul>
</nav>
