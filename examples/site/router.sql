-- router.sql - the database of the demo site: sqlite3 FILE < router.sql
--
-- The pages only read it; the web program updates the settings. Lists that a page shows come from the views at the
-- end, so that a template's query says what it wants and not how it is stored.

pragma foreign_keys = on;
begin;

create table status (
    id integer primary key check (id = 1),
    model text not null, firmware text not null, serial text not null,
    uptime_minutes integer not null,
    connected integer not null check (connected in (0, 1)),
    address text not null, gateway text not null,
    memory_total integer not null, memory_used integer not null  -- MiB
);
insert into status values (1, 'Fjord R4', '2.6.1', 'FJ4-0029-7713', 19574, 1, '203.0.113.27',
                           '203.0.113.1', 256, 141);

create table network (
    id integer primary key,
    name text not null unique,
    prefix text not null unique,  -- the address but its last number
    wireless integer not null check (wireless in (0, 1)),
    enabled integer not null check (enabled in (0, 1))
);
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
    online integer not null check (online in (0, 1)),
    seen text not null,
    received integer not null, sent integer not null,  -- MiB today
    unique (network, host)
);
insert into device (name, network, host, mac, online, seen, received, sent) values
    ('printer', 1, 5, '02:00:5e:10:00:05', 1, '2025-03-14 09:12', 12, 3),
    ('file server', 1, 6, '02:00:5e:10:00:06', 1, '2025-03-14 09:14', 804, 2291),
    ('television', 1, 7, '02:00:5e:10:00:07', 0, '2025-03-13 22:51', 0, 0),
    ('desk computer', 1, 10, '02:00:5e:10:00:0a', 1, '2025-03-14 09:14', 1630, 214),
    ('old laptop', 1, 11, '02:00:5e:10:00:0b', 0, '2025-02-02 17:30', 0, 0),
    ('radio, kitchen', 1, 12, '02:00:5e:10:00:0c', 1, '2025-03-14 09:13', 96, 2),
    ('heating', 1, 20, '02:00:5e:10:00:14', 1, '2025-03-14 09:10', 1, 4),
    ('solar inverter', 1, 21, '02:00:5e:10:00:15', 1, '2025-03-14 09:10', 2, 9),
    ('doorbell', 1, 22, '02:00:5e:10:00:16', 1, '2025-03-14 09:14', 5, 71),
    ('backup disk', 1, 100, '02:00:5e:10:00:64', 0, '2025-03-14 03:40', 340, 6),
    ('phone, Ada', 2, 30, '02:00:5e:20:00:1e', 1, '2025-03-14 09:14', 211, 38),
    ('phone, Emil', 2, 31, '02:00:5e:20:00:1f', 1, '2025-03-14 09:11', 154, 22),
    ('phone, Jörg', 2, 32, '02:00:5e:20:00:20', 0, '2025-03-14 07:58', 87, 11),
    ('tablet', 2, 33, '02:00:5e:20:00:21', 1, '2025-03-14 09:14', 402, 17),
    ('laptop, Ada', 2, 34, '02:00:5e:20:00:22', 1, '2025-03-14 09:14', 966, 130),
    ('laptop, Emil', 2, 35, '02:00:5e:20:00:23', 0, '2025-03-13 23:20', 0, 0),
    ('game console', 2, 36, '02:00:5e:20:00:24', 0, '2025-03-12 21:04', 0, 0),
    ('loudspeaker, bath', 2, 37, '02:00:5e:20:00:25', 1, '2025-03-14 09:09', 44, 1),
    ('loudspeaker, hall', 2, 38, '02:00:5e:20:00:26', 1, '2025-03-14 09:09', 45, 1),
    ('vacuum cleaner', 2, 39, '02:00:5e:20:00:27', 1, '2025-03-14 08:40', 3, 2),
    ('kitchen scales', 2, 40, '02:00:5e:20:00:28', 0, '2025-03-10 12:15', 0, 0),
    ('e-book reader', 2, 41, '02:00:5e:20:00:29', 0, '2025-03-13 22:02', 0, 0),
    ('watch', 2, 42, '02:00:5e:20:00:2a', 1, '2025-03-14 09:14', 6, 2),
    ('lamp, desk', 2, 43, '02:00:5e:20:00:2b', 1, '2025-03-14 09:14', 1, 1),
    ('lamp, hall', 2, 44, '02:00:5e:20:00:2c', 1, '2025-03-14 09:14', 1, 1),
    ('<b>"&''', 3, 50, '02:00:5e:30:00:32', 1, '2025-03-14 09:14', 2048, 64),
    ('phone of a visitor', 3, 51, '02:00:5e:30:00:33', 1, '2025-03-14 09:03', 31, 5),
    ('C:\new\table', 3, 52, '02:00:5e:30:00:34', 0, '2025-03-13 18:44', 0, 0),
    ('</script>', 3, 53, '02:00:5e:30:00:35', 1, '2025-03-14 09:01', 640, 12),
    ('saw', 4, 60, '02:00:5e:40:00:3c', 0, '2025-01-25 15:07', 0, 0),
    ('garage door', 4, 61, '02:00:5e:40:00:3d', 0, '2025-01-25 15:08', 0, 0);

create table event (
    id integer primary key,
    at text not null,
    level text not null check (level in ('info', 'warning', 'error')),
    source text not null,
    message text not null
);
insert into event (at, level, source, message) values
    ('2025-02-28 18:00', 'info', 'system', 'Started, firmware 2.6.1'),
    ('2025-02-28 18:01', 'info', 'internet', 'Connected, address 203.0.113.27'),
    ('2025-03-01 04:00', 'info', 'system', 'Clock set from time server'),
    ('2025-03-03 11:42', 'warning', 'wireless', 'Channel 6 is busy, changed to channel 11'),
    ('2025-03-05 20:17', 'warning', 'internet', 'No answer from name server 198.51.100.53'),
    ('2025-03-05 20:18', 'info', 'internet', 'Name server 198.51.100.54 in use'),
    ('2025-03-08 02:31', 'error', 'internet', 'Connection lost'),
    ('2025-03-08 02:39', 'info', 'internet', 'Connected, address 203.0.113.27'),
    ('2025-03-10 08:05', 'info', 'devices', 'New device "kitchen scales" in network Wireless'),
    ('2025-03-12 19:50', 'warning', 'wireless', 'Wrong password from 02:00:5e:99:00:01, 5 times'),
    ('2025-03-13 18:40', 'info', 'devices', 'New device "C:\new\table" in network Guests'),
    ('2025-03-14 03:40', 'error', 'devices', 'Device "backup disk" went away during a transfer'),
    ('2025-03-14 08:59', 'info', 'devices', 'New device "<b>"&''" in network Guests'),
    ('2025-03-14 09:02', 'info', 'system',
                'Settings changed');

create table traffic (  -- one row an hour, Mbit/s on average
    hour integer primary key check (hour between 0 and 23),
    received real not null, sent real not null
);
insert into traffic values
    (0, 18.2, 2.1), (1, 6.4, 1.2), (2, 2.0, 0.9), (3, 31.5, 44.0), (4, 3.1, 1.0), (5, 2.2, 0.8),
    (6, 9.7, 1.9), (7, 28.4, 4.4), (8, 41.9, 6.2), (9, 36.0, 7.8), (10, 33.3, 9.1),
    (11, 30.8, 8.0), (12, 44.1, 6.6), (13, 39.0, 7.2), (14, 35.5, 8.9), (15, 37.4, 9.4),
    (16, 46.2, 7.7), (17, 58.9, 8.1), (18, 71.3, 9.6), (19, 88.0, 10.2), (20, 93.6, 9.9),
    (21, 90.1, 8.5), (22, 62.7, 5.3), (23, 34.8, 3.0);

create table channel (number integer primary key, label text not null);
insert into channel values
    (1, '1 (2412 MHz)'), (6, '6 (2437 MHz)'), (11, '11 (2462 MHz)'), (36, '36 (5180 MHz)'),
    (44, '44 (5220 MHz)'), (100, '100 (5500 MHz)');

create table security (code text primary key, label text not null, position integer not null);
insert into security values ('wpa3', 'WPA3', 1), ('mixed', 'WPA3 / WPA2', 2), ('wpa2', 'WPA2', 3);

create table settings (
    id integer primary key check (id = 1),
    hostname text not null,
    network integer not null references network (id),   -- where new devices go
    dhcp integer not null check (dhcp in (0, 1)),
    first_host integer not null, last_host integer not null,
    nameserver text not null,
    ssid text not null,
    channel integer not null references channel (number),
    security text not null references security (code),
    hidden integer not null check (hidden in (0, 1)),
    guests integer not null check (guests in (0, 1))
);
insert into settings values (1, 'fjord', 2, 1, 30, 199, '198.51.100.53', 'Fjord "upstairs"', 11,
                             'mixed', 0, 1);

-- A change is noted; the log's oldest events make room.
create trigger settings_changed after update on settings begin
    insert into event (at, level, source, message)
        values (strftime('%Y-%m-%d %H:%M', 'now', 'localtime'), 'info', 'system',
                'Settings changed');
    delete from event where id <= (select max(id) - 1000 from event);
end;

create view device_list as
    select device.id, device.name, network.id as network_id, network.name as network,
           network.prefix || device.host as ip, network.id * 256 + device.host as ip_order,
           device.mac, device.online, device.seen, device.received + device.sent as volume
    from device join network on network.id = device.network;

create view network_list as
    select network.id, network.name, network.prefix || '0/24' as address, network.wireless,
           network.enabled, count(device.id) as devices, total(device.online) as online
    from network left join device on device.network = network.id
    group by network.id;

-- Names for a JSON text within a script element. What would end the string or the
-- element stands as \u and a number, so printjs finds no quote left to escape: its
-- \' is no JSON.
create view device_script as
    select id, volume,
           replace(replace(replace(substr(json_quote(name), 2, length(json_quote(name)) - 2),
                                   '\"', '\u0022'), '''', '\u0027'), '<', '\u003c') as name
    from device_list;

commit;
