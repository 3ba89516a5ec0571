-- traffic.figures.sql - the traffic of a device: between one line of minutes or hours and the next,
-- in Mbit/s on average. Where the counters have begun anew nothing is known.
.read figures.sql
create temp table rate as
    with sample as (
        select kind, line, cast(word1 as integer) as at, cast(word2 as integer) as received,
               cast(word3 as integer) as sent
        from (select 'minutes' as kind union all select 'hours') join figure(kind)),
    step as (
        select kind, at, at - lag(at) over former as seconds, received - lag(received) over former as received,
               sent - lag(sent) over former as sent
        from sample window former as (partition by kind order by line))
    select kind, at, at - seconds as began, round(received * 8e-6 / seconds, 3) as received,
           round(sent * 8e-6 / seconds, 3) as sent
    from step where seconds > 0 and received >= 0 and sent >= 0;
create temp view minute_list as
    select (unixepoch() - at) / 120 * 2 as ago, received, sent from rate where kind = 'minutes' order by at;
create temp view traffic_list as
    select cast(strftime('%H', began, 'unixepoch', 'localtime') as integer) as hour, at as position,
           received, sent
    from rate where kind = 'hours';
