-- figures.sql - a device's own figures in the place of those that the demo makes up: the scripts
-- NAME.figures.sql, which run before these pages are made, read it. It is for a device that has one
-- network, on eth0; the folder of its figures has uptime, loadavg, meminfo, dev, arp as in /proc,
-- routes as "ip route" prints them, leases as "dumpleases -a -d" does, and minutes and hours: the
-- time and what had come in and gone out by then, a line each. What cannot be read is null, and the
-- pages say that it is unknown.
create temp view status_now as
    select model, firmware, serial,
           (select max(word1 = 'default') from figure('routes')) as connected,
           (select trim(substr(text, instr(text, ' src ') + 5)) from figure('routes')
            where instr(text, ' src ')) as address,
           (select word3 from figure('routes') where word1 = 'default' and word2 = 'via') as gateway,
           (select cast(word1 as integer) / 60 from figure('uptime')
            where word1 glob '[0-9]*') as uptime_minutes,
           (select word2 / 1024 from figure('meminfo')
            where word1 = 'MemTotal:' and word2 glob '[0-9]*') as memory_total,
           (select (max(iif(word1 = 'MemTotal:', cast(word2 as integer), null))
                    - max(iif(word1 = 'MemAvailable:', cast(word2 as integer), null))) / 1024
            from figure('meminfo') where word2 glob '[0-9]*') as memory_used,
           (select word1 || ', ' || word2 || ', ' || word3 from figure('loadavg')) as load
    from status;

create temp view interface_list as
    select rtrim(word1, ':') as name, printf('%.1f', word2 / 1048576.0) as received,
           printf('%.1f', word10 / 1048576.0) as sent, word4 + word12 as errors
    from figure('dev') where line > 2 and word17 is not null and word1 <> 'lo:';

-- Who has an address, and whether it has been heard of lately.
create temp table lease as
    select lower(substr(text, 1, 17)) as mac, trim(substr(text, 19, 16)) as ip,
           trim(substr(text, 35)) as rest, line
    from figure('leases') where text glob '[0-9a-f][0-9a-f]:*';
create temp table device_list as
    with named as (
        select *, replace(rest, rtrim(rest, replace(rest, ' ', '')), '') as ends,
               trim(rtrim(rest, replace(rest, ' ', ''))) as host from lease)
    select line as id, iif(host = '', mac, host) as name, network_now.id as network_id,
           network_now.label as network, ip,
           cast(substr(ip, length(rtrim(ip, '0123456789')) + 1) as integer) as ip_order, mac,
           (select max(word4 = mac and word3 = '0x2') from figure('arp')) as online,
           strftime('%Y-%m-%d %H:%M', min(unixepoch(), ends - 3600 * (
               select value from setting where setting.name = 'lease')),
               'unixepoch', 'localtime') as seen,
           null as volume, lower(host || ' ' || label || ' ' || ip || ' ' || mac) as searched
    from named, network_now where network_now.id = 1;
create temp view network_list as
    select network_now.id, label as name, 0 as wireless, 1 as enabled,
           (select word1 from figure('routes') where instr(text, ' src ')) as address,
           iif(exists (select 1 from figure('leases')), count(device_list.id), null) as devices,
           iif(exists (select 1 from figure('leases')), count(nullif(online, 0)), null) as online
    from network_now left join device_list on network_id = network_now.id where network_now.id = 1;
