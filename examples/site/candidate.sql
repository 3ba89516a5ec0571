-- candidate.sql - what a form or a file wants the settings to be. A script puts it into
-- candidate, looks at candidate_problem, and takes it by setting taken; what candidate_change
-- has then has not been taken, because the settings had another version. All is temporary.
create temp table candidate (
    hostname, nameserver, dhcp, first_host, last_host, network, ssid, channel, security,
    passphrase, hidden, guests,
    version,  -- of the settings that it may replace, null for any
    taken default 0
);

create temp view candidate_problem as  -- in the order of the form's fields
    select 'hostname' as field, 'site.settings.bad.hostname' as text from candidate
        where ifnull(hostname, '') = '' or length(hostname) > 32
           or hostname glob '*[^a-z0-9-]*' or hostname glob '-*' or hostname glob '*-'
    union all select 'nameserver', 'site.settings.bad.nameserver' from candidate
        where ifnull(nameserver, '') = '' or nameserver glob '*[^0-9.]*'
           or not json_valid('[' || replace(nameserver, '.', ',') || ']')
           or not (select count(*) = 4 and min(type = 'integer' and value <= 255)
                   from json_each('[' || replace(nameserver, '.', ',') || ']'))
    union all select 'first', 'site.settings.bad.number' from candidate
        where ifnull(first_host, '') = '' or first_host glob '*[^0-9]*'
           or cast(first_host as integer) not between 1 and 254
    union all select 'last', 'site.settings.bad.number' from candidate
        where ifnull(last_host, '') = '' or last_host glob '*[^0-9]*'
           or cast(last_host as integer) not between 1 and 254
    union all select 'last', 'site.settings.bad.range' from candidate
        where cast(first_host as integer) > cast(last_host as integer)
          and cast(last_host as integer) > 0
    union all select 'network', 'site.settings.bad.choice' from candidate
        where ifnull(network, '') not in (select cast(id as text) from network)
    union all select 'ssid', 'site.settings.bad.ssid' from candidate
        where ifnull(length(cast(ssid as blob)), 0) not between 1 and 32
           or ssid glob '*[' || char(1) || '-' || char(31) || char(127) || ']*'
    union all select 'channel', 'site.settings.bad.choice' from candidate
        where ifnull(channel, '') not in (select cast(number as text) from channel)
    union all select 'security', 'site.settings.bad.choice' from candidate
        where ifnull(security, '') not in (select code from security)
    union all select 'passphrase', 'site.settings.bad.passphrase' from candidate
        where ifnull(length(passphrase), 0) not between 8 and 63 or passphrase glob '*[^ -~]*'
    union all select 'form', 'site.settings.bad.choice' from candidate
        where cast(dhcp as text) not in ('0', '1') or cast(hidden as text) not in ('0', '1')
           or cast(guests as text) not in ('0', '1') or dhcp + hidden + guests is null;

create temp view candidate_change as  -- a row when the settings are not so already
    select 1 from candidate, settings
    where (settings.hostname, settings.nameserver, settings.dhcp, settings.first_host,
           settings.last_host, settings.network, settings.ssid, settings.channel,
           settings.security, settings.passphrase, settings.hidden, settings.guests)
       is not (candidate.hostname, candidate.nameserver, cast(candidate.dhcp as integer),
               cast(candidate.first_host as integer), cast(candidate.last_host as integer),
               cast(candidate.network as integer), candidate.ssid,
               cast(candidate.channel as integer), candidate.security, candidate.passphrase,
               cast(candidate.hidden as integer), cast(candidate.guests as integer));

create temp trigger candidate_taken after update of taken on candidate begin
    update settings set (hostname, nameserver, dhcp, first_host, last_host, network, ssid,
                         channel, security, passphrase, hidden, guests, version)
        = (new.hostname, new.nameserver, new.dhcp, new.first_host, new.last_host, new.network,
           new.ssid, new.channel, new.security, new.passphrase, new.hidden, new.guests,
           version + 1)
        where version = ifnull(new.version, version) and exists (select 1 from candidate_change);
end;
