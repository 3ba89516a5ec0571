-- database-01.sql - the database of the demo site, in its first version. Each script that follows
-- carries it to the version of its number; what has been released never changes. The web program
-- runs all that are missing in one transaction, also on an empty database. They have no rows.
--
-- The pages only read it; the scripts of the forms, NAME.sql beside NAME.htm, change it. What
-- a page shows comes from the views at the end, so that a template's query says what it
-- wants and not how it is stored. What the settings may hold is in candidate.sql, and what
-- goes with the next restart in sessions.sql.

create table status (
    id integer primary key check (id = 1),
    model text not null, firmware text not null, serial text not null,
    started integer not null,  -- seconds since 1970, like all times here
    connected integer not null check (connected in (0, 1)),
    address text not null, gateway text not null,
    memory_total integer not null  -- MiB
) strict;
insert into status values (1, 'Fjord R4', '2.6.1', 'FJ4-0029-7713', unixepoch() - 1174440, 1,
                           '203.0.113.27', '203.0.113.1', 256);

create table network (
    id integer primary key,
    name text not null unique,
    prefix text not null unique,  -- the address but its last number
    wireless integer not null check (wireless in (0, 1)),
    enabled integer not null check (enabled in (0, 1))
) strict;
insert into network values
    (1, 'Home', '192.168.10.', 0, 1),
    (2, 'Wireless', '192.168.20.', 1, 1),
    (3, 'Guests', '192.168.30.', 1, 1),
    (4, 'Workshop & garage', '192.168.40.', 0, 0);

create table device (
    id integer primary key,
    name text not null,
    network integer not null references network (id),
    host integer not null check (host between 1 and 254),  -- the address's last number
    mac text not null unique,
    online integer not null check (online in (0, 1)),  -- is at home these days
    seen integer not null,  -- the last time of one that is not
    received integer not null, sent integer not null,  -- MiB on a usual day
    folded text,  -- the name for a search, see name_folded
    unique (network, host)
) strict;
insert into device (name, network, host, mac, online, seen, received, sent) values
    ('printer', 1, 5, '02:00:5e:10:00:05', 1, unixepoch() - 180, 12, 3),
    ('file server', 1, 6, '02:00:5e:10:00:06', 1, unixepoch() - 60, 804, 2291),
    ('television', 1, 7, '02:00:5e:10:00:07', 0, unixepoch() - 37440, 0, 0),
    ('desk computer', 1, 10, '02:00:5e:10:00:0a', 1, unixepoch() - 60, 1630, 214),
    ('old laptop', 1, 11, '02:00:5e:10:00:0b', 0, unixepoch() - 3426300, 0, 0),
    ('radio, kitchen', 1, 12, '02:00:5e:10:00:0c', 1, unixepoch() - 120, 96, 2),
    ('heating', 1, 20, '02:00:5e:10:00:14', 1, unixepoch() - 300, 1, 4),
    ('solar inverter', 1, 21, '02:00:5e:10:00:15', 1, unixepoch() - 300, 2, 9),
    ('doorbell', 1, 22, '02:00:5e:10:00:16', 1, unixepoch() - 60, 5, 71),
    ('backup disk', 1, 100, '02:00:5e:10:00:64', 0, unixepoch() - 20100, 340, 6),
    ('phone, Ada', 2, 30, '02:00:5e:20:00:1e', 1, unixepoch() - 60, 211, 38),
    ('phone, Emil', 2, 31, '02:00:5e:20:00:1f', 1, unixepoch() - 240, 154, 22),
    ('phone, Jörg', 2, 32, '02:00:5e:20:00:20', 0, unixepoch() - 4620, 87, 11),
    ('tablet', 2, 33, '02:00:5e:20:00:21', 1, unixepoch() - 60, 402, 17),
    ('laptop, Ada', 2, 34, '02:00:5e:20:00:22', 1, unixepoch() - 60, 966, 130),
    ('laptop, Emil', 2, 35, '02:00:5e:20:00:23', 0, unixepoch() - 35700, 0, 0),
    ('game console', 2, 36, '02:00:5e:20:00:24', 0, unixepoch() - 130260, 0, 0),
    ('loudspeaker, bath', 2, 37, '02:00:5e:20:00:25', 1, unixepoch() - 360, 44, 1),
    ('loudspeaker, hall', 2, 38, '02:00:5e:20:00:26', 1, unixepoch() - 360, 45, 1),
    ('vacuum cleaner', 2, 39, '02:00:5e:20:00:27', 1, unixepoch() - 2100, 3, 2),
    ('kitchen scales', 2, 40, '02:00:5e:20:00:28', 0, unixepoch() - 334800, 0, 0),
    ('e-book reader', 2, 41, '02:00:5e:20:00:29', 0, unixepoch() - 40380, 0, 0),
    ('watch', 2, 42, '02:00:5e:20:00:2a', 1, unixepoch() - 60, 6, 2),
    ('lamp, desk', 2, 43, '02:00:5e:20:00:2b', 1, unixepoch() - 60, 1, 1),
    ('lamp, hall', 2, 44, '02:00:5e:20:00:2c', 1, unixepoch() - 60, 1, 1),
    ('<b>"&''', 3, 50, '02:00:5e:30:00:32', 1, unixepoch() - 60, 2048, 64),
    ('phone of a visitor', 3, 51, '02:00:5e:30:00:33', 1, unixepoch() - 720, 31, 5),
    ('C:\new\table', 3, 52, '02:00:5e:30:00:34', 0, unixepoch() - 52260, 0, 0),
    ('</script>', 3, 53, '02:00:5e:30:00:35', 1, unixepoch() - 840, 640, 12),
    ('saw', 4, 60, '02:00:5e:40:00:3c', 0, unixepoch() - 4126080, 0, 0),
    ('garage door', 4, 61, '02:00:5e:40:00:3d', 0, unixepoch() - 4126020, 0, 0);

-- What has happened. A code has its text in the visitor's language, and what it is about
-- stands in detail. Days at the end are before now: the demo is always fresh.
create table event (
    id integer primary key,
    at integer not null,
    level text not null check (level in ('info', 'warning', 'error')),
    source text not null check (source in ('system', 'internet', 'wireless', 'devices')),
    code text not null,
    detail text not null,
    count integer not null default 1
) strict;
insert into event (at, level, source, code, detail, count)
    select unixepoch() - cast(column1 * 86400 as integer), column2, column3, column4, column5,
           column6
    from (values
    (13.6, 'info', 'system', 'started', '2.6.1', 1),
    (13.599, 'info', 'internet', 'connected', '203.0.113.27', 1),
    (13.1, 'info', 'system', 'clock', '', 1),
    (10.9, 'warning', 'wireless', 'channel', '6, 11', 1),
    (8.54, 'warning', 'internet', 'noanswer', '198.51.100.53', 1),
    (8.53, 'info', 'internet', 'nameserver', '198.51.100.54', 1),
    (6.28, 'error', 'internet', 'lost', '', 1),
    (6.27, 'info', 'internet', 'connected', '203.0.113.27', 1),
    (4.05, 'info', 'devices', 'device', 'kitchen scales (Wireless)', 1),
    (1.56, 'warning', 'wireless', 'password', '02:00:5e:99:00:01', 5),
    (0.6, 'info', 'devices', 'device', 'C:\new\table (Guests)', 1),
    (0.23, 'error', 'devices', 'away', 'backup disk', 1),
    (0.01, 'info', 'devices', 'device', '<b>"&'' (Guests)', 1)) order by column1 desc;

-- Events are added here, now or at a time. One that has happened within a day is counted
-- there, so that nobody can push the others out by repeating one, nor from many addresses: of
-- wrong passwords the last 100 addresses stay. The oldest of 1000 make room.
create view event_add as select level, source, code, detail, at from event;
create trigger event_counted instead of insert on event_add begin
    update event set at = ifnull(new.at, unixepoch()), count = count + 1, detail = new.detail
        where code = new.code and source = new.source
          and at > ifnull(new.at, unixepoch()) - 86400 and detail = new.detail;
    insert into event (at, level, source, code, detail)
        select ifnull(new.at, unixepoch()), new.level, new.source, new.code, new.detail
        where changes() = 0;
    delete from event where id <= (select max(id) - 1000 from event)
        or code = 'login' and id <= (select id from event where code = 'login'
                                     order by id desc limit 1 offset 100);
end;

create table traffic (  -- one row an hour of a usual day, Mbit/s on average
    hour integer primary key check (hour between 0 and 23),
    received real not null, sent real not null
) strict;
insert into traffic values
    (0, 18.2, 2.1), (1, 6.4, 1.2), (2, 2.0, 0.9), (3, 31.5, 44.0), (4, 3.1, 1.0), (5, 2.2, 0.8),
    (6, 9.7, 1.9), (7, 28.4, 4.4), (8, 41.9, 6.2), (9, 36.0, 7.8), (10, 33.3, 9.1),
    (11, 30.8, 8.0), (12, 44.1, 6.6), (13, 39.0, 7.2), (14, 35.5, 8.9), (15, 37.4, 9.4),
    (16, 46.2, 7.7), (17, 58.9, 8.1), (18, 71.3, 9.6), (19, 88.0, 10.2), (20, 93.6, 9.9),
    (21, 90.1, 8.5), (22, 62.7, 5.3), (23, 34.8, 3.0);

-- The settings, a row each: the form, its checks, the backup and what restores it all read it
-- here. The kind says what a value may be (candidate.sql) and how the form draws it (fields.frm);
-- least and most are the limits of a number, or of a text's length.
create table setting (
    name text primary key,  -- of the field as well
    part text not null,     -- of the form
    kind text not null
        check (kind in ('host', 'address', 'number', 'choice', 'text', 'secret', 'box')),
    least integer, most integer,
    factory text not null,  -- what holds until somebody stores another value
    stored text,
    value text not null as (ifnull(stored, factory)),
    applied text  -- what the device has, where a program carries changes out
) strict;
insert into setting (name, part, kind, least, most, factory) values
    ('hostname',   'general',   'host',    1,    32,   'fjord'),
    ('nameserver', 'general',   'address', null, null, '198.51.100.53'),
    ('dhcp',       'addresses', 'box',     null, null, '1'),
    ('first',      'addresses', 'number',  1,    254,  '30'),
    ('last',       'addresses', 'number',  1,    254,  '199'),
    ('network',    'addresses', 'choice',  null, null, '1'),  -- where new devices go
    ('ssid',       'wireless',  'text',    1,    32,   'Fjord "upstairs"'),
    ('channel',    'wireless',  'choice',  null, null, '11'),
    ('security',   'wireless',  'choice',  null, null, 'mixed'),
    ('passphrase', 'wireless',  'secret',  8,    63,   'birch-heron-7-lantern'),
    ('hidden',     'wireless',  'box',     null, null, '0'),
    ('guests',     'wireless',  'box',     null, null, '1');

create table choice (
    setting text not null references setting (name),
    code text not null, label text not null, position integer not null,
    primary key (setting, code)
) strict;
insert into choice values
    ('channel', '1', '1 (2412 MHz)', 1), ('channel', '6', '6 (2437 MHz)', 2),
    ('channel', '11', '11 (2462 MHz)', 3), ('channel', '36', '36 (5180 MHz)', 4),
    ('channel', '44', '44 (5220 MHz)', 5), ('channel', '100', '100 (5500 MHz)', 6),
    ('security', 'wpa3', 'WPA3', 1), ('security', 'mixed', 'WPA3 / WPA2', 2),
    ('security', 'wpa2', 'WPA2', 3);

create view choice_list as
    select setting, code, label, position from choice
    union all select 'network', cast(id as text), name, id from network;

-- Counts the changes of settings, so that a form tells that it shows an old state.
create table revision (id integer primary key check (id = 1), number integer not null) strict;
insert into revision values (1, 1);

create trigger settings_changed after update on revision begin
    insert into event_add values ('info', 'system', 'changed', '', null);
end;

-- Addresses that always go to the same device, in the network of new devices.
create table fixed (
    id integer primary key,
    mac text not null unique,
    host integer not null unique check (host between 1 and 254)
) strict;
insert into fixed (mac, host) values ('02:00:5e:10:00:05', 5), ('02:00:5e:10:00:06', 6);

-- The owner's password, as a hash; null until the first visit.
create table account (id integer primary key check (id = 1), password text) strict;
insert into account values (1, null);

create trigger password_changed after update on account begin
    insert into event_add values ('info', 'system', 'newpassword', '', null);
end;

-- Letters as they are folded for a search: without case and accents.
create table folding (id integer primary key, letters text not null, folded text not null) strict;
insert into folding (letters, folded) values
    ('àáâãäåāăąÀÁÂÃÄÅĀĂĄ', 'a'), ('çćĉċčÇĆĈĊČ', 'c'), ('ďđĎĐ', 'd'),
    ('èéêëēĕėęěÈÉÊËĒĔĖĘĚ', 'e'), ('ĝğġģĜĞĠĢ', 'g'), ('ìíîïīĭįıÌÍÎÏĪĬĮİ', 'i'),
    ('łľĺļŁĽĹĻ', 'l'), ('ñńňņÑŃŇŅ', 'n'), ('òóôõöøōŏőÒÓÔÕÖØŌŎŐ', 'o'), ('ŕřŗŔŘŖ', 'r'),
    ('śŝşšșŚŜŞŠȘ', 's'), ('ťţțŤŢȚ', 't'), ('ùúûüũūŭůűųÙÚÛÜŨŪŬŮŰŲ', 'u'),
    ('ýÿŷÝŸŶ', 'y'), ('źżžŹŻŽ', 'z'), ('æÆ', 'ae'), ('œŒ', 'oe'), ('ßẞ', 'ss');
create table folded_letter (
    number integer primary key, letter text not null, folded text not null
) strict;
insert into folded_letter (letter, folded)
    with recursive each_letter(letter, folded, rest) as (
        select substr(letters, 1, 1), folded, substr(letters, 2) from folding
        union all select substr(rest, 1, 1), folded, substr(rest, 2) from each_letter
            where rest <> '')
    select letter, folded from each_letter;

-- What is alive on a router's pages is made up here: it moves with the clock, so that two
-- looks at one time see the same. A device at home is out for ten minutes in two hours.
-- The limit keeps SQLite from asking the clock anew for each row.
create view clock as
    select unixepoch() as now, unixepoch() / 600 as span,
           cast(strftime('%H', 'now', 'localtime') as integer) as hour,
           cast(strftime('%j', 'now', 'localtime') as integer) as day,
           (cast(strftime('%H', 'now', 'localtime') as integer) * 60
            + cast(strftime('%M', 'now', 'localtime') as integer)) / 1440.0 as day_part
    limit 1;

create view status_now as
    select status.*, max(0, now - started) / 60 as uptime_minutes,
           iif(started > now + 8, 0, max(0, started - now)) as starts_in,  -- see reboot.sql
           memory_total * (48 + now / 60 % 9) / 100 as memory_used
    from status, clock;

create view network_now as
    select id, network.name, ifnull(setting.value, network.name) as label, prefix, wireless,
           iif(network.name = 'Guests', (select value from setting where name = 'guests') = '1',
               enabled) as enabled
    from network left join setting on setting.name = 'ssid' and network.name = 'Wireless';

create view device_list as
    select device.id, device.name, network.id as network_id, network.name as network,
           network.prefix || device.host as ip, network.id * 256 + device.host as ip_order,
           device.mac, enabled and online and (device.id * 7 + span) % 12 <> 0 as online,
           strftime('%Y-%m-%d %H:%M', iif(not online or not enabled, seen,
               iif((device.id * 7 + span) % 12 = 0, span * 600 - device.id,
                   now - device.id * 13 % 50)), 'unixepoch', 'localtime') as seen,
           cast((received + sent) * (0.1 + day_part) as integer) as volume,
           device.folded || ' ' || lower(network.name) || ' ' || network.prefix || device.host
               || ' ' || device.mac as searched
    from device join network_now as network on network.id = device.network, clock;

create view network_list as
    select network.id, network.label as name, network.prefix || '0/24' as address, network.wireless,
           network.enabled, count(device_list.id) as devices, total(device_list.online) as online
    from network_now as network left join device_list on device_list.network_id = network.id
    group by network.id;

create view traffic_list as  -- of the last day, the oldest hour first
    select traffic.hour, (traffic.hour - clock.hour + 23) % 24 as position,
           round(received * (80 + (day * 31 + traffic.hour * 17) % 40) / 100.0
                 * iif(traffic.hour = clock.hour, 0.8 + now / 60 % 5 * 0.1, 1), 1) as received,
           round(sent * (80 + (day * 13 + traffic.hour * 29) % 40) / 100.0
                 * iif(traffic.hour = clock.hour, 0.8 + now / 60 % 7 * 0.1, 1), 1) as sent
    from traffic, clock;

create view minute_list as  -- of the last hour, the oldest first
    with recursive minute(number) as (
        select 58 union all select number - 2 from minute where number > 0)
    select minute.number as ago,
           round(received * (70 + ((now / 60 - minute.number) * 37 + iif(minute.number, 0, now / 10))
                                  % 60) / 100.0, 1) as received,
           round(sent * (70 + ((now / 60 - minute.number) * 53 + iif(minute.number, 0, now / 10))
                              % 60) / 100.0, 1) as sent
    from minute, clock join traffic using (hour);

create view event_list as
    select id, strftime('%Y-%m-%d %H:%M', at, 'unixepoch', 'localtime') as at, level, source,
           code, detail, count, row_number() over (order by event.at desc, id desc) as position
    from event;

update device set folded = (
    with recursive fold(number, text) as (
        select 0, device.name
        union all select fold.number + 1, replace(text, letter, folded_letter.folded)
            from fold join folded_letter on folded_letter.number = fold.number + 1)
    select lower(text) from fold order by number desc limit 1);

pragma user_version = 1;
