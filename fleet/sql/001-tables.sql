create table camera (
    id integer generated always as identity primary key,
    prefix text not null unique,
    site text not null default '',
    zone text not null default 'UTC' check (timezone(zone, timestamptz 'epoch') is not null),
    first_seen timestamptz not null default now()
);
comment on table camera is 'A camera, made with the first line that it sends';
comment on column camera.id is 'Its number in the other tables';
comment on column camera.prefix is 'What its topics begin with';
comment on column camera.site is 'Where it is; set by hand';
comment on column camera.zone is 'The time zone there, such as Europe/Berlin; set by hand';
comment on column camera.first_seen is 'When its first line came';

create table life (
    camera integer not null references camera,
    epoch text not null,
    covered int8multirange not null,
    first_seen timestamptz not null default now(),
    last_seen timestamptz not null default now(),
    primary key (camera, epoch)
);
comment on table life is 'A life of a camera''s ledger: a wiped folder or another card begins another one';
comment on column life.camera is 'Whose';
comment on column life.epoch is 'The ledger''s random name';
comment on column life.covered is 'Numbers of which the database has all lines that the camera still had';
comment on column life.first_seen is 'When its first line came';
comment on column life.last_seen is 'When its newest batch came';

create table line (
    camera integer not null,
    epoch text not null,
    seq bigint not null,
    t timestamptz not null,
    kind text not null,
    body json not null,
    primary key (camera, epoch, seq, t)
) partition by range (t);
comment on table line is 'Every line as the camera wrote it, by month';
comment on column line.camera is 'Whose';
comment on column line.epoch is 'The ledger''s life';
comment on column line.seq is 'The line''s number in it';
comment on column line.t is 'When; 1970 for a line from before the camera''s clock was known';
comment on column line.kind is 'What it tells of';
comment on column line.body is 'The line, byte by byte';
create table line_other partition of line default;
comment on table line_other is 'Lines of no month that there is a table for, and of cameras whose clock is wrong';

create table boot (
    camera integer not null,
    boot text not null,
    began timestamptz not null,
    primary key (camera, boot)
);
comment on table boot is 'When a camera''s machine started, by which lines are dated that came before its clock was known';
comment on column boot.camera is 'Whose';
comment on column boot.boot is 'The start''s name';
comment on column boot.began is 'When it was';

create table crossing (
    camera integer not null,
    epoch text not null,
    seq bigint not null,
    t timestamptz,
    boot text,
    mono bigint,
    entrance smallint not null,
    direction text not null check (direction in ('in', 'out')),
    class text not null,
    object bigint not null,
    occupancy integer not null,
    primary key (camera, epoch, seq)
);
create index on crossing (camera, t);
create index on crossing (camera, boot) where t is null;
comment on table crossing is 'Somebody or something went through an entrance';
comment on column crossing.camera is 'Whose';
comment on column crossing.epoch is 'The ledger''s life';
comment on column crossing.seq is 'The line''s number in it';
comment on column crossing.t is 'When; null until the camera''s clock was known';
comment on column crossing.boot is 'The machine''s start that mono counts from, where the clock was not known';
comment on column crossing.mono is 'Milliseconds since that start';
comment on column crossing.entrance is 'Which entrance of the camera, 1 to 3';
comment on column crossing.direction is 'in or out';
comment on column crossing.class is 'What it was, such as Person';
comment on column crossing.object is 'The object''s number since the application''s start';
comment on column crossing.occupancy is 'How many were inside afterwards';

create table period (
    camera integer not null,
    epoch text not null,
    seq bigint not null,
    begins timestamptz,
    ends timestamptz,
    coverage real not null,
    tallies json not null,
    primary key (camera, epoch, seq)
);
comment on table period is 'A period of the camera''s archives';
comment on column period.camera is 'Whose';
comment on column period.epoch is 'The ledger''s life';
comment on column period.seq is 'The line''s number in it';
comment on column period.begins is 'Its begin; null where the camera''s clock was not known';
comment on column period.ends is 'Its end; null likewise';
comment on column period.coverage is 'The share of it that was watched, 0 to 1';
comment on column period.tallies is 'What was counted, by name';

create table watched (
    camera integer not null,
    epoch text not null,
    seq bigint not null,
    minute timestamptz,
    boot text,
    mono bigint,
    seconds real not null,
    cycles integer not null,
    slow integer not null,
    failed integer not null,
    occupancy integer not null,
    primary key (camera, epoch, seq)
);
create index on watched (camera, minute);
create index on watched (camera, boot) where minute is null;
comment on table watched is 'How much of a minute a camera watched';
comment on column watched.camera is 'Whose';
comment on column watched.epoch is 'The ledger''s life';
comment on column watched.seq is 'The line''s number in it';
comment on column watched.minute is 'The minute''s begin; null until the camera''s clock was known';
comment on column watched.boot is 'The machine''s start that mono counts from, where the clock was not known';
comment on column watched.mono is 'The minute''s begin in milliseconds since that start';
comment on column watched.seconds is 'Seconds of it that were analysed';
comment on column watched.cycles is 'Cycles of the analysis in it';
comment on column watched.slow is 'Those of them that came late';
comment on column watched.failed is 'Those of them that failed';
comment on column watched.occupancy is 'How many were inside at its end';

create table alert (
    camera integer not null,
    epoch text not null,
    seq bigint not null,
    t timestamptz,
    alert text not null,
    active boolean not null,
    by_hand boolean not null,
    primary key (camera, epoch, seq)
);
comment on table alert is 'An alert started or stopped';
comment on column alert.camera is 'Whose';
comment on column alert.epoch is 'The ledger''s life';
comment on column alert.seq is 'The line''s number in it';
comment on column alert.t is 'When; null where the camera''s clock was not known';
comment on column alert.alert is 'Which one';
comment on column alert.active is 'Whether it started';
comment on column alert.by_hand is 'Whether somebody tried it by hand';

-- Makes the table of a month, with what came of it before there was one.
create function make_month(month date) returns void language plpgsql as $$
declare
    name text := 'line_' || to_char(month, 'YYYY_MM');
    begins timestamptz := month::timestamp at time zone 'UTC';
    ends timestamptz := (month + interval '1 month') at time zone 'UTC';
begin
    if to_regclass(name) is not null then
        return;
    end if;
    perform pg_advisory_xact_lock(hashtext('senvo months'));
    if to_regclass(name) is not null then
        return;
    end if;
    execute format('create table %I (like line including all)', name);
    execute format('comment on table %I is %L', name, 'Lines of a month');
    execute format('with moved as (delete from line_other where t >= %L and t < %L returning *) insert into %I select * from moved',
                   begins, ends, name);
    execute format('alter table line attach partition %I for values from (%L) to (%L)', name, begins, ends);
end $$;
comment on function make_month(date) is 'Makes the table of a month''s lines; its argument is the month''s first day';

-- Drops the lines of whole months; crossings and all else stay.
create function drop_lines_before(moment timestamptz) returns void language plpgsql as $$
declare
    part record;
begin
    for part in select c.relname from pg_inherits i join pg_class c on c.oid = i.inhrelid
                where i.inhparent = 'line'::regclass and c.relname ~ '^line_\d{4}_\d{2}$' loop
        if (to_date(substr(part.relname, 6), 'YYYY_MM') + interval '1 month') at time zone 'UTC' <= moment then
            execute format('drop table %I', part.relname);
        end if;
    end loop;
    delete from line_other where t < moment;
end $$;
comment on function drop_lines_before(timestamptz) is 'Drops lines by age, whole months at a time';

-- Brings what was staged into the tables and answers up to where each life has no gap. Twice is once.
create function store() returns table (prefix text, epoch text, through bigint) language plpgsql as $$
#variable_conflict use_column
begin
    insert into camera (prefix) select distinct b.prefix from staged_batch b order by 1 on conflict do nothing;
    -- Whoever stores lines of a camera waits here for whoever does the same: what is covered is read under this lock.
    perform 1 from camera c where c.prefix in (select prefix from staged_batch) order by c.id for update;
    perform make_month(m.month) from (
        select distinct date_trunc('month', t at time zone 'UTC')::date as month from staged_line
        where t between now() - interval '5 years' and now() + interval '1 month') m order by m.month;
    insert into line
        select c.id, s.epoch, s.seq, coalesce(s.t, timestamptz 'epoch'), s.kind, s.body
        from staged_line s join camera c using (prefix) on conflict do nothing;
    insert into boot
        select c.id, s.body ->> 'boot', s.t - (s.body ->> 'mono')::bigint * interval '1 millisecond'
        from staged_line s join camera c using (prefix)
        where s.kind = 'clock' and s.t is not null and s.body ->> 'boot' is not null and s.body ->> 'mono' is not null
        order by s.epoch, s.seq on conflict do nothing;
    insert into crossing
        select c.id, s.epoch, s.seq, s.t, s.body ->> 'boot', (s.body ->> 'mono')::bigint,
               (s.body ->> 'entrance')::smallint, s.body ->> 'direction', s.body ->> 'class',
               (s.body ->> 'object')::bigint, (s.body ->> 'occupancy')::integer
        from staged_line s join camera c using (prefix) where s.kind = 'crossing' on conflict do nothing;
    insert into period
        select c.id, s.epoch, s.seq,
               case when json_typeof(s.body -> 'begin') = 'string' then (s.body ->> 'begin')::timestamptz end,
               case when json_typeof(s.body -> 'end') = 'string' then (s.body ->> 'end')::timestamptz end,
               (s.body ->> 'coverage')::real, s.body -> 'tallies'
        from staged_line s join camera c using (prefix) where s.kind = 'period' on conflict do nothing;
    insert into watched
        select c.id, s.epoch, s.seq,
               case when json_typeof(s.body -> 'minute') = 'string' then (s.body ->> 'minute')::timestamptz end,
               s.body ->> 'boot',
               case when json_typeof(s.body -> 'minute') = 'number' then (s.body ->> 'minute')::bigint end,
               (s.body ->> 'seconds')::real, (s.body ->> 'cycles')::integer, (s.body ->> 'slow')::integer,
               (s.body ->> 'failed')::integer, (s.body ->> 'occupancy')::integer
        from staged_line s join camera c using (prefix) where s.kind = 'watched' on conflict do nothing;
    insert into alert
        select c.id, s.epoch, s.seq, s.t, s.body ->> 'alert', (s.body ->> 'active')::boolean,
               (s.body ->> 'by_hand')::boolean
        from staged_line s join camera c using (prefix) where s.kind = 'alert' on conflict do nothing;
    -- A clock that became known dates what came before, in whichever order both arrive.
    if exists (select from staged_line s where s.kind = 'clock' or s.t is null) then
        update crossing x set t = b.began + x.mono * interval '1 millisecond'
            from boot b join camera c on c.id = b.camera
            where x.t is null and x.camera = b.camera and x.boot = b.boot
                and c.prefix in (select prefix from staged_batch);
        update watched x set minute = b.began + x.mono * interval '1 millisecond'
            from boot b join camera c on c.id = b.camera
            where x.minute is null and x.camera = b.camera and x.boot = b.boot
                and c.prefix in (select prefix from staged_batch);
    end if;
    insert into life (camera, epoch, covered)
        select c.id, r.epoch, range_agg(r.range) from (
            select prefix, epoch, int8range(after + 1, through + 1) as range from staged_batch
            where through > after
            union all
            -- Numbers that the camera itself says are gone.
            select s.prefix, s.epoch, int8range((s.body ->> 'from')::bigint, (s.body ->> 'through')::bigint + 1)
            from staged_line s where s.kind = 'cut' and s.body ->> 'removed' = 'all'
        ) r join camera c using (prefix) group by 1, 2 order by 1, 2
        on conflict (camera, epoch) do update set covered = life.covered + excluded.covered, last_seen = now();
    return query
        select c.prefix, l.epoch,
               coalesce((select upper(r) - 1 from unnest(l.covered) r where r @> int8 '1'), 0)
        from life l join camera c on c.id = l.camera
        where (c.prefix, l.epoch) in (select b.prefix, b.epoch from staged_batch b where b.through > b.after)
        order by c.prefix, l.first_seen, l.epoch;
end $$;
comment on function store() is 'Brings staged lines into the tables and answers what is confirmed';

create view hourly as
with hours as (
    select w.camera, date_trunc('hour', w.minute, c.zone) as hour, sum(w.seconds) as seconds
    from watched w join camera c on c.id = w.camera where w.minute is not null group by 1, 2
), counts as (
    select x.camera, date_trunc('hour', x.t, c.zone) as hour, x.entrance, x.class,
           count(*) filter (where x.direction = 'in') as ins, count(*) filter (where x.direction = 'out') as outs
    from crossing x join camera c on c.id = x.camera where x.t is not null group by 1, 2, 3, 4
)
select c.site, c.prefix as camera, n.entrance, n.class, coalesce(n.hour, h.hour) as hour,
       coalesce(n.hour, h.hour) at time zone c.zone as local_hour,
       coalesce(n.ins, 0) as ins, coalesce(n.outs, 0) as outs, least(coalesce(h.seconds, 0) / 3600, 1) as coverage
from hours h full join counts n on n.camera = h.camera and n.hour = h.hour
join camera c on c.id = coalesce(n.camera, h.camera);
comment on view hourly is 'What went through each entrance in each hour of the site''s time zone';
comment on column hourly.site is 'Where';
comment on column hourly.camera is 'Which camera, by its prefix';
comment on column hourly.entrance is 'Which of its entrances; null in an hour without crossings';
comment on column hourly.class is 'What was counted; null likewise';
comment on column hourly.hour is 'The hour''s begin';
comment on column hourly.local_hour is 'The same as a clock at the site shows it';
comment on column hourly.ins is 'How many came in';
comment on column hourly.outs is 'How many went out';
comment on column hourly.coverage is 'The share of the hour that was watched, 0 to 1';

create view daily as
with days as (
    select w.camera, date_trunc('day', w.minute at time zone c.zone)::date as day, sum(w.seconds) as seconds
    from watched w join camera c on c.id = w.camera where w.minute is not null group by 1, 2
), counts as (
    select x.camera, date_trunc('day', x.t at time zone c.zone)::date as day, x.entrance, x.class,
           count(*) filter (where x.direction = 'in') as ins, count(*) filter (where x.direction = 'out') as outs
    from crossing x join camera c on c.id = x.camera where x.t is not null group by 1, 2, 3, 4
)
select c.site, c.prefix as camera, n.entrance, n.class, coalesce(n.day, d.day) as day,
       coalesce(n.ins, 0) as ins, coalesce(n.outs, 0) as outs,
       least(coalesce(d.seconds, 0) / extract(epoch from
           (coalesce(n.day, d.day) + 1)::timestamp at time zone c.zone - coalesce(n.day, d.day)::timestamp at time zone c.zone)::real,
           1) as coverage
from days d full join counts n on n.camera = d.camera and n.day = d.day
join camera c on c.id = coalesce(n.camera, d.camera);
comment on view daily is 'What went through each entrance on each day of the site''s time zone';
comment on column daily.site is 'Where';
comment on column daily.camera is 'Which camera, by its prefix';
comment on column daily.entrance is 'Which of its entrances; null on a day without crossings';
comment on column daily.class is 'What was counted; null likewise';
comment on column daily.day is 'The day there';
comment on column daily.ins is 'How many came in';
comment on column daily.outs is 'How many went out';
comment on column daily.coverage is 'The share of the day that was watched, 0 to 1';

do $$
begin
    if not exists (select from pg_roles where rolname = 'senvo_read') then
        create role senvo_read;
    end if;
    if not exists (select from pg_roles where rolname = 'senvo_write') then
        create role senvo_write;
    end if;
    grant select on all tables in schema public to senvo_read;
    grant select, insert, update, delete on all tables in schema public to senvo_write;
exception when insufficient_privilege then
    raise notice 'the roles senvo_read and senvo_write are not made: that takes the right to make roles';
end $$;
