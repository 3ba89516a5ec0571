<nav class="menu" aria-label="{?site.menu?}">
<ul>
<li><a href="<?echo $var:base?>overview.htm"<?if eq $var:page[id] overview ` aria-current="page"`?>>{?site.overview.title?}</a></li>
<li><a href="<?echo $var:base?>devices.htm"<?if eq $var:page[id] devices ` aria-current="page"`?>>{?site.devices.title?}</a></li>
<li><a href="<?echo $var:base?>addresses.htm"<?if eq $var:page[id] addresses ` aria-current="page"`?>>{?site.fixed.title?}</a></li>
<li><a href="<?echo $var:base?>traffic.htm"<?if eq $var:page[id] traffic ` aria-current="page"`?>>{?site.traffic.title?}</a></li>
<li><a href="<?echo $var:base?>events.htm"<?if eq $var:page[id] events ` aria-current="page"`?>>{?site.events.title?}</a></li>
<li><a href="<?echo $var:base?>settings.htm"<?if eq $var:page[id] settings ` aria-current="page"`?>>{?site.settings.title?}</a></li>
<li><a href="<?echo $var:base?>password.htm"<?if eq $var:page[id] password ` aria-current="page"`?>>{?site.password.title?}</a></li>
<li><a href="<?echo $var:base?>backup.htm"<?if eq $var:page[id] backup ` aria-current="page"`?>>{?site.backup.title?}</a></li>
<li><a href="<?echo $var:base?>reboot.htm"<?if eq $var:page[id] reboot ` aria-current="page"`?>>{?site.reboot.title?}</a></li>
</ul>
</nav>
