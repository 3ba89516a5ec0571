-- visit.sql - takes into the log the events that have waited for a visit. Two programs at once, or
-- a kill before the end, may count an event twice; none is lost.
create temp table moved as select * from sessions.waiting_event;
insert into event_add (level, source, code, detail, at)
    select level, source, code, detail, at from moved order by id;
delete from sessions.waiting_event where id in (select id from moved);
