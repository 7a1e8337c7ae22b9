import { useEffect, useRef, useState } from 'preact/hooks';
import { actionAddress, ask, CameraError } from '../model/api';
import { LogLevel, LogLine, readLog } from '../model/readers';
import { whyNobodyIsHidden } from '../model/settings';
import { useDeed } from '../parts/deed';
import { Confirm, Question } from '../parts/dialog';
import { SelectSetting, SwitchSetting, TextSetting } from '../parts/fields';
import { useFocusKept } from '../parts/focus';
import { SettingsFrame } from '../parts/settings_frame';
import { usePulse, useSettings } from '../stores';
import { texts } from '../texts';

const t = texts.advanced;

export function AdvancedTab() {
  return (
    <>
      <Log />
      <SettingsFrame>
        {() => (
          <div class="cards flow">
            <section class="card">
              <h2>{t.overlays}</h2>
              <SwitchSetting tag="DetectionOverlaysOn" />
              <StreamChoice tag="SelectedDetectionOverlay" />
              <SwitchSetting tag="AnonOverlaysOn" />
              <HidingStreamChoice />
            </section>
            <section class="card">
              <h2>{t.reset}</h2>
              <SwitchSetting tag="IsOccResOn" />
              <TextSetting tag="OccAutoResTime" type="time" />
            </section>
            <Analysis />
            <Alerts />
          </div>
        )}
      </SettingsFrame>
    </>
  );
}

function StreamChoice({ tag, warning }: { tag: string; warning?: string }) {
  const { resolutions, loaded } = useSettings();
  const choices = resolutions.map((value): [string, string] => [value, `${value.replace('x', ' × ')} ${t.pixels}`]);
  const none: [string, string][] = loaded!.get(tag) ? [] : [['', t.noStream]];
  return <SelectSetting tag={tag} choices={[...none, ...choices]} warning={warning} />;
}

function HidingStreamChoice() {
  const { values, size } = useSettings();
  const why = whyNobodyIsHidden(values, size);
  return <StreamChoice tag="SelectedAnonOverlay" warning={why ? t.hides[why] : ''} />;
}

function Analysis() {
  const { cycleTime } = usePulse();
  const { size } = useSettings();
  return (
    <section class="card">
      <h2>{t.analysis}</h2>
      <dl class="rows">
        <div>
          <dt>{t.resolution}</dt>
          <dd data-testid="analysis-resolution">
            {size.width} × {size.height} {t.pixels}
          </dd>
        </div>
        <div>
          <dt>{t.executionTime}</dt>
          <dd data-testid="execution-time">{cycleTime === null ? texts.unknown : t.milliseconds(cycleTime)}</dd>
        </div>
      </dl>
      <SwitchSetting tag="VerboseLog" />
    </section>
  );
}

const levels: LogLevel[] = ['info', 'warning', 'error'];
const kFirstLines = 200;

function Log() {
  const [open, setOpen] = useState(false);
  const [lines, setLines] = useState<LogLine[] | null>(null);
  const [trouble, setTrouble] = useState('');
  const [asking, setAsking] = useState(false);
  const [said, setSaid] = useState('');

  const read = async () => {
    setSaid('');
    try {
      setLines(readLog(await ask('get_newest_log')).reverse());
      setTrouble('');
    } catch (error) {
      setTrouble(t.logFailed + texts.trouble[error instanceof CameraError ? error.trouble : 'unreachable']);
    }
  };
  const clear = async () => {
    setSaid('');
    try {
      await ask('clear_logfile');
    } catch (error) {
      setTrouble(texts.live.failed + texts.trouble[error instanceof CameraError ? error.trouble : 'unreachable']);
      return;
    }
    setTrouble('');
    if (open) await read();
    setSaid(t.logCleared);
  };
  useEffect(() => {
    if (open) void read();
  }, [open]);

  return (
    <section class="card log">
      <h2>{t.log}</h2>
      <div class="actions">
        <button type="button" aria-expanded={open} onClick={() => setOpen(!open)}>
          {open ? t.hideLog : t.viewLog}
        </button>
        {open && (
          <button type="button" onClick={read}>
            {t.logRefresh}
          </button>
        )}
        <a class="button" href={actionAddress('get_logfile_as_plain_text')} download="senvo-log.txt">
          {t.asText}
        </a>
        <a class="button" href={actionAddress('get_logfile_as_csv_text')} download="senvo-log.csv">
          {t.asCsv}
        </a>
        <button type="button" class="danger" onClick={() => setAsking(true)}>
          {t.clearLog}
        </button>
      </div>
      {trouble && (
        <p class="problem" role="alert">
          {trouble}
        </p>
      )}
      <p role="status" data-testid="log-said">
        {said}
      </p>
      {open && lines && <LogLines lines={lines} />}
      {asking && (
        <Confirm
          question={{ title: t.clearLogAsk, text: t.clearLogWarning, yes: t.clearLog, then: () => void clear() }}
          onClose={() => setAsking(false)}
        />
      )}
    </section>
  );
}

function LogLines({ lines }: { lines: LogLine[] }) {
  const [wanted, setWanted] = useState<LogLevel[]>(levels);
  const [filter, setFilter] = useState('');
  const [most, setMost] = useState(kFirstLines);
  const table = useRef<HTMLDivElement>(null);
  // The button for older lines goes when there are no more.
  useFocusKept(table, () => table.current);
  const needle = filter.toLowerCase();
  const matching = lines.filter((line) => wanted.includes(line.level) && line.message.toLowerCase().includes(needle));
  const shown = matching.slice(0, most);
  return (
    <>
      <div class="filters">
        <fieldset class="levels">
          <legend>{t.logLevel}</legend>
          {levels.map((level) => (
            <label key={level}>
              <input
                type="checkbox"
                checked={wanted.includes(level)}
                onChange={() =>
                  setWanted(wanted.includes(level) ? wanted.filter((one) => one !== level) : [...wanted, level])
                }
              />
              {t.levels[level]}
            </label>
          ))}
        </fieldset>
        <label>
          {t.logFilter} <input type="search" value={filter} onInput={(event) => setFilter(event.currentTarget.value)} />
        </label>
      </div>
      <p class="help" role="status">
        {matching.length === 0 ? t.logEmpty : t.logCount(shown.length, matching.length)}
      </p>
      <div ref={table} class="scroll log-lines" tabIndex={0} role="region" aria-label={t.log}>
        <table data-testid="log">
          <thead>
            <tr>
              <th scope="col">{t.time}</th>
              <th scope="col">{t.level}</th>
              <th scope="col">{t.message}</th>
            </tr>
          </thead>
          <tbody>
            {shown.map((line, i) => (
              <tr key={i} class={line.level}>
                <td class="time">{line.time}</td>
                <td class="level">{t.levelOf[line.level]}</td>
                <td class="message">{line.message}</td>
              </tr>
            ))}
          </tbody>
        </table>
        {shown.length < matching.length && (
          <button type="button" onClick={() => setMost(most + 5 * kFirstLines)}>
            {t.logOlder}
          </button>
        )}
      </div>
    </>
  );
}

const alerts = ['breached', 'area1', 'area2', 'area3', 'occupancy'] as const;

function Alerts() {
  const [said, act] = useDeed();
  const [question, setQuestion] = useState<Question | null>(null);
  return (
    <section class="card alerts">
      <h2>{t.alerts}</h2>
      <ul class="plain">
        {alerts.map((alert) => (
          <li key={alert}>
            <span>{t.alert[alert]}</span>
            <span class="actions">
              <button
                type="button"
                aria-label={t.raiseNamed(t.alert[alert])}
                onClick={() =>
                  setQuestion({
                    title: t.raiseAsk(t.alert[alert]),
                    text: t.raiseWarning,
                    yes: t.raise,
                    then: () => void act(`manual_${alert}_alert_on`, t.raised(t.alert[alert])),
                  })
                }
              >
                {t.raise}
              </button>
              <button
                type="button"
                aria-label={t.clearNamed(t.alert[alert])}
                onClick={() => act(`manual_${alert}_alert_off`, t.cleared(t.alert[alert]))}
              >
                {t.clear}
              </button>
            </span>
          </li>
        ))}
      </ul>
      <p role="status" data-testid="alert-said">
        {said}
      </p>
      <p class="help">{t.alertsNote}</p>
      {question && <Confirm question={question} onClose={() => setQuestion(null)} />}
    </section>
  );
}
