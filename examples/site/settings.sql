-- settings.sql - takes the settings page's form, or says what is wrong with it. An empty
-- passphrase leaves the one that there is; blanks around an address are nobody's wish. Where
-- the settings are so already, as at a second click, nobody has been in between.
begin immediate;
.read candidate.sql
insert into candidate
    select trim(:hostname), trim(:nameserver), :dhcp is not null, trim(:first), trim(:last),
           :network, :ssid, :channel, :security,
           iif(ifnull(:passphrase, '') = '', passphrase, :passphrase),
           :hidden is not null, :guests is not null, 0
    from settings;
select * from candidate_problem
union all select 'version', 'site.settings.bad.version' from settings, candidate_change
    where version <> cast(ifnull(:version, 0) as integer)
union all select null, null where :lang is not null or :reveal is not null;  -- not saved yet
update candidate set taken = 1;
update session set flash = 'site.settings.saved' where number = :sid;
commit;
