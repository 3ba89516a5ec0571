<li class="card">
<h3><?echo $var:net[name]?></h3>
<p><?echo $var:net[address]?><?if eq $var:net[wireless] 1 `, {?site.overview.wireless?}`?></p>
<p><?if eq $var:net[enabled] 1 `<span class="on">{?site.overview.enabled?}</span>`
    `<span class="off">{?site.overview.disabled?}</span>`?></p>
<p>{?site.overview.online?}: <?echo $var:net[online]?> / <?echo $var:net[devices]?></p>
</li>
