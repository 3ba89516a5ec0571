#!/bin/sh
# bench/device/page.sh FOLDER DATABASE - the overview by the shell, with sed for escapes and
# texts. FOLDER/bin has sqlite3, FOLDER/page has texts.sed.
folder=$1 database=$2
cards=
interfaces=
devices=0
online=0

# The columns of a row, each after a word for the row's kind.
query() {
    "$folder/bin/sqlite3" -separator "	" "$database" "
select 'host', value from setting where name = 'hostname';
select 'status', connected, address, gateway, uptime_minutes / 1440,
    uptime_minutes / 60 % 24, uptime_minutes % 60, memory_total,
    memory_total - memory_used, load from status_now;
select 'network', name, address, wireless, enabled, devices, cast(online as integer), id
    from network_list order by id;
select 'interface', name, received, sent, errors from interface_list;
select 'footer', model, firmware, serial from status;"
}

# is_on NUMBER TEXT TEXT - the first text for 1, else the second.
is_on() {
    if [ "$1" = 1 ]; then
        echo "<span class=\"on\">{?site.overview.$2?}</span>"
    else
        echo "<span class=\"off\">{?site.overview.$3?}</span>"
    fi
}

add_card() {
    radio=
    [ "$3" != 1 ] || radio=', {?site.overview.wireless?}'
    cards="$cards<li class=\"card\">
<h3><bdi>$1</bdi></h3>
<p>$2$radio</p>
<p>$(is_on "$4" enabled disabled)</p>
<p>{?site.overview.online?}: <a href=\"devices.htm?net=$7\">$6 / $5</a></p>
</li>
"
}

add_interface() {
    interfaces="$interfaces<tr><th scope=\"row\">$1</th><td class=\"number\" data-label=\"{?site.traffic.received?} (MiB)\">$2</td>
<td class=\"number\" data-label=\"{?site.traffic.sent?} (MiB)\">$3</td><td class=\"number\" data-label=\"{?site.overview.errors?}\">$4</td></tr>
"
}

print_page() {
    cat <<END
<!DOCTYPE html>
<html lang="{?site.lang?}" dir="{?site.dir?}">
<head>
<meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
<title>{?site.overview.title?} - Fjord R4</title>
<link rel="icon" href="data:image/svg+xml;base64,PHN2ZyB4bWxucz0iaHR0cDovL3d3dy53My5vcmcvMjAwMC9zdmciIHZpZXdCb3g9IjAgMCAxNiAxNiI+PHJlY3Qgd2lkdGg9IjE2IiBoZWlnaHQ9IjE2IiByeD0iMyIgZmlsbD0iIzBiNTM5NCIvPjxwYXRoIGQ9Ik0yIDEyIDYgNGwzIDUgMi0zIDMgNnoiIGZpbGw9IiNmZmYiLz48L3N2Zz4K">
<link rel="stylesheet" href="style.css">
<script src="live.js" defer></script>
</head>
<body>
<a class="skip" href="#main">{?site.skip?}</a>
<header>
<div class="top">
<p class="brand">Fjord R4 <span><bdi>$hostname</bdi></span></p>
<nav class="languages" aria-label="{?site.languages?}">
<form id="languages" method="get"></form>
<button lang="en" name="lang" value="en" form="languages" formnovalidate aria-current="true">English</button>
<button lang="de" name="lang" value="de" form="languages" formnovalidate>Deutsch</button>
<button lang="el" name="lang" value="el" form="languages" formnovalidate>Ελληνικά</button>
</nav>
</div>
<nav class="menu" aria-label="{?site.menu?}">
<ul>
<li><a href="overview.htm" aria-current="page">{?site.overview.title?}</a></li>
<li><a href="devices.htm">{?site.devices.title?}</a></li>
<li><a href="addresses.htm">{?site.fixed.title?}</a></li>
<li><a href="traffic.htm">{?site.traffic.title?}</a></li>
<li><a href="events.htm">{?site.events.title?}</a></li>
<li><a href="settings.htm">{?site.settings.title?}</a></li>
<li><a href="password.htm">{?site.password.title?}</a></li>
<li><a href="backup.htm">{?site.backup.title?}</a></li>
<li><a href="reboot.htm">{?site.reboot.title?}</a></li>
</ul>
</nav>
</header>
<main id="main">
<h1>{?site.overview.title?}</h1>


<table class="status" id="status" data-live>
<caption>{?site.overview.status?}</caption>
<tbody>
<tr><th scope="row">{?site.overview.internet?}</th><td>$(is_on "$connected" connected disconnected)</td></tr>
<tr><th scope="row">{?site.overview.address?}</th><td>$address</td></tr>
<tr><th scope="row">{?site.overview.gateway?}</th><td>$gateway</td></tr>
<tr><th scope="row">{?site.overview.uptime?}</th><td>$days {?site.overview.days?}, $hours {?site.overview.hours?}, $minutes {?site.overview.minutes?}</td></tr>
<tr><th scope="row">{?site.overview.memory?}</th><td><meter min="0" max="$total" value="$free" aria-label="{?site.overview.memory?}">$free / $total</meter> $free / $total MiB</td></tr>
<tr><th scope="row">{?site.overview.load?}</th><td>$load</td></tr>
</tbody>
</table>
<h2>{?site.overview.networks?}</h2>
<ul class="cards" id="networks" data-live>
$cards</ul>
<table class="status" id="devices" data-live>
<tbody>
<tr><th scope="row">{?site.overview.devices?}</th><td><a href="devices.htm">$devices</a></td></tr>
<tr><th scope="row">{?site.overview.online?}</th><td><a href="devices.htm?sort=seen">$online</a></td></tr>
</tbody>
</table>
<table class="wide" id="interfaces" data-live>
<caption>{?site.overview.interfaces?}</caption>
<thead>
<tr>
<th scope="col">{?site.devices.name?}</th>
<th scope="col" class="number">{?site.traffic.received?} (MiB)</th>
<th scope="col" class="number">{?site.traffic.sent?} (MiB)</th>
<th scope="col" class="number">{?site.overview.errors?}</th>
</tr>
</thead>
<tbody>
$interfaces</tbody>
</table>
</main>
<p class="error" id="stale" aria-live="assertive" hidden data-ended="{?site.live.ended?}" data-lost="{?site.live.lost?}"></p>
<footer>
<p>$model - {?site.firmware?} $firmware - {?site.serial?} $serial</p>
</footer>
</body>
</html>

END
}

query | sed 's/&/\&amp;/g; s/</\&lt;/g; s/>/\&gt;/g; s/"/\&quot;/g' | {
    while IFS="	" read -r kind a b c d e f g h i; do
        case $kind in
        host) hostname=$a ;;
        status)
            connected=$a address=$b gateway=$c days=$d hours=$e minutes=$f total=$g free=$h load=$i
            ;;
        network)
            devices=$((devices + e)) online=$((online + f))
            add_card "$a" "$b" "$c" "$d" "$e" "$f" "$g"
            ;;
        interface) add_interface "$a" "$b" "$c" "$d" ;;
        footer) model=$a firmware=$b serial=$c ;;
        esac
    done
    print_page
} | sed -f "$folder/page/texts.sed"
