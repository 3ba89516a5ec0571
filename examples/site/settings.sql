-- settings.sql - takes the settings page's form, or says what is wrong with it. An empty
-- passphrase leaves the one that there is; blanks around an address are nobody's wish. Where
-- the settings are so already, as at a second click, nobody has been in between.
.read candidate.sql
insert into candidate
    select trim(:hostname), trim(:nameserver), :dhcp is not null, trim(:first), trim(:last),
           :network, :ssid, :channel, :security,
           iif(ifnull(:passphrase, '') = '', passphrase, :passphrase),
           :hidden is not null, :guests is not null, cast(ifnull(:version, 0) as integer), 0
    from settings;
select * from candidate_problem
union all select 'version', 'site.settings.bad.version'
    from settings, candidate, candidate_change where settings.version <> candidate.version
union all select 'again', null where :lang is not null or :reveal is not null;  -- not saved yet
update candidate set taken = 1;
select 'version', 'site.settings.bad.version' from candidate_change;
select 'done', 'site.settings.saved';
