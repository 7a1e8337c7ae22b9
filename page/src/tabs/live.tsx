import { useState } from 'preact/hooks';
import { momentOf } from '../dates';
import { CameraError, post, Trouble } from '../model/api';
import { hidingSize } from '../model/settings';
import { PanelCamera } from '../model/readers';
import { kMostApart } from '../model/trial';
import { Answers } from '../parts/answers';
import { Confirm, Question } from '../parts/dialog';
import { useDeed } from '../parts/deed';
import { Picture } from '../parts/picture';
import { CameraStatus } from '../parts/status';
import { answers, Connection } from '../model/pulse';
import { useStore } from '../model/store';
import { alerts as alertStore, pulse, useBefore, usePulse, useRole, useSettings, useToday } from '../stores';
import { texts } from '../texts';

const t = texts.live;
const number = (value: number | null) => (value === null ? texts.unknown : String(value));

/** Says that the clocks of the camera and of this device differ: one of them dates what is counted wrongly. */
function ClockWarning() {
  const { clockAhead } = usePulse();
  if (clockAhead === null || Math.abs(clockAhead) <= kMostApart) return null;
  return (
    <p class="banner warn" role="status" data-testid="clock">
      {t.clock(momentOf(new Date(Date.now() + clockAhead * 1000), new Date(), 'short'), clockAhead)}
    </p>
  );
}

export function LiveTab() {
  const { isViewer } = useRole();
  return (
    <>
      <ClockWarning />
      <Answers />
      <Sections isViewer={isViewer} />
    </>
  );
}

function Sections({ isViewer }: { isViewer: boolean }) {
  const unanswered = useUnanswered();
  return (
    <div class="live">
      <div class="main column">
        <LivePicture />
        <Cameras />
      </div>
      <div class="side column">
        {!isViewer && <AfterRestart />}
        {!isViewer && unanswered.length > 0 && <AskFollowers unanswered={unanswered} />}
        <Figures unanswered={unanswered.length} />
        <AlertList />
        <Passages />
        {!isViewer && <Resets />}
      </div>
    </div>
  );
}

function LivePicture() {
  const { resolutions, size, loaded } = useSettings();
  const [chosen, setChosen] = useState<string | null>(null);
  // Overlays are drawn on the chosen stream and on the one that is analysed.
  const drawn = loaded?.get('DetectionOverlaysOn') === '1' ? loaded.get('SelectedDetectionOverlay')! : '';
  const analysed = `${size.width}x${size.height}`;
  const hidden = loaded ? hidingSize(loaded, size) : '';
  const usual = [hidden, drawn, analysed].find((entry) => entry && resolutions.includes(entry)) ?? '';
  const nameOf = (entry: string) => {
    const plain = entry.replace('x', ' × ');
    if (hidden) return texts.picture.sizeOf(plain, entry === hidden ? 'hidden' : 'shown');
    if (entry === drawn) return texts.picture.sizeOf(plain, 'drawn');
    return entry === analysed ? texts.picture.sizeOf(plain, 'analysed') : plain;
  };
  const resolution = chosen ?? usual;
  return (
    <section class="card picture-card" aria-label={texts.picture.label}>
      <Picture resolution={resolution} size={size} />
      {resolutions.length > 0 && (
        <div class="inline">
          <label for="resolution">{texts.picture.stream}</label>
          <select id="resolution" value={resolution} onChange={(event) => setChosen(event.currentTarget.value)}>
            <option value="">{texts.picture.automatic}</option>
            {resolutions.map((entry) => (
              <option key={entry} value={entry}>
                {nameOf(entry)}
              </option>
            ))}
          </select>
        </div>
      )}
    </section>
  );
}

interface FigureProps {
  label: string;
  value: number | null;
  off?: boolean;
  /** What the value does not have in it. */
  without?: string;
  testid: string;
}

function Figure({ label, value, off, without, testid }: FigureProps) {
  return (
    <div class={`figure ${off ? 'off' : ''}`}>
      <dt>
        {label}
        {off && <span class="muted"> ({t.areaOff})</span>}
      </dt>
      <dd data-testid={testid}>{number(value)}</dd>
      {without && <dd class="without">{without}</dd>}
    </div>
  );
}

/** The followers that are to be counted, but have told nothing. */
function useUnanswered(): PanelCamera[] {
  const { panel, ages, connection } = usePulse();
  if (connection !== 'ok' || !panel) return [];
  return panel.cameras.filter(({ index, active }) => index > 0 && active && ages[index - 1] === null);
}

function Figures({ unanswered }: { unanswered: number }) {
  const { occupancy, panel, crowd, buildingCrowd } = usePulse();
  const { beginning } = useStore(alertStore);
  // A leader that was started anew has not added up anything yet.
  const least = unanswered > 0 ? (occupancy ?? 0) : 0;
  const building = panel?.occupancy == null ? null : Math.max(panel.occupancy, least);
  // What the camera counts by, not what somebody is about to change.
  const { loaded } = useSettings();
  return (
    <section class="card figures">
      <h2>{t.occupancy}</h2>
      <dl class="big">
        <Figure label={t.here} value={occupancy} testid="occupancy" />
        <Figure
          label={t.building}
          value={building}
          without={unanswered > 0 ? t.without(unanswered) : ''}
          testid="building"
        />
      </dl>
      {beginning && (
        <p class="help" data-testid="beginning">
          {t.begun[beginning.by](momentOf(beginning.at, new Date(), 'short'))}
        </p>
      )}
      <h2>{t.crowd}</h2>
      <dl>
        {crowd.map((count, i) => (
          <Figure
            key={i}
            label={t.area(i + 1)}
            value={count}
            off={loaded?.get(`Detection${i + 1}_Active`) === '0'}
            testid={`crowd-${i + 1}`}
          />
        ))}
        <Figure label={t.building} value={buildingCrowd} testid="crowd-building" />
      </dl>
    </section>
  );
}

/** Offers to go on with what was inside before the camera was started. */
function AfterRestart() {
  const before = useBefore();
  const { occupancy } = usePulse();
  const [said, setSaid] = useState('');
  const { inside, start, lost } = before;
  if (inside === null || start === null) return said ? <p role="status">{said}</p> : null;
  const together = Math.max(0, inside + (occupancy ?? 0));
  const takeOver = async () => {
    try {
      await before.takeOver(together, t.remarkOfTakingOver);
      setSaid(t.takenOver);
    } catch (error) {
      setSaid(t.failed + texts.trouble[error instanceof CameraError ? error.trouble : 'unreachable']);
    }
  };
  return (
    <section class="card column" data-testid="restart">
      <h2>{t.restart}</h2>
      <p>{t.restarted(momentOf(start, new Date(), 'short'), inside)}</p>
      {lost.cameIn + lost.wentOut > 0 && <p>{t.lost(lost)}</p>}
      <div class="actions">
        <button type="button" disabled={occupancy === null} onClick={() => void takeOver()}>
          {t.takeOver(together)}
        </button>
        <button type="button" onClick={() => before.leave()}>
          {t.leaveIt}
        </button>
      </div>
      <p class="help">{t.takeOverHelp}</p>
      <p role="status">{said}</p>
    </section>
  );
}

/** Has a leader ask followers that it asks only after a save, since it was started anew. */
function AskFollowers({ unanswered }: { unanswered: PanelCamera[] }) {
  const [said, setSaid] = useState('');
  const askNow = async () => {
    try {
      await post('use_followers', '');
      setSaid(t.asked);
    } catch (error) {
      setSaid(t.failed + texts.trouble[error instanceof CameraError ? error.trouble : 'unreachable']);
    }
  };
  return (
    <section class="card column" data-testid="ask-followers">
      <h2>{t.notAll}</h2>
      <p>{t.unanswered(unanswered.map(({ index, name }) => name || texts.follower(index)))}</p>
      <div class="actions">
        <button type="button" onClick={() => void askNow()}>
          {t.askNow}
        </button>
      </div>
      <p role="status">{said}</p>
    </section>
  );
}

/** What there is to say where today's counts are missing. */
function ofToday(isKnown: boolean, trouble: Trouble | null, connection: Connection): string {
  if (connection !== 'ok' && connection !== 'asking') return texts.connection[connection];
  if (trouble) return t.todayFailed + texts.trouble[trouble];
  return isKnown ? '' : t.todayAsked;
}

const kAlertsShown = 10;

/** Which alerts are raised, and which were in the last day. */
function AlertList() {
  const { alerts } = useStore(alertStore);
  const now = new Date();
  const isRaised = alerts.some(({ until }) => until === null);
  return (
    <section class="card alerts" data-testid="alerts">
      <h2>{t.alerts}</h2>
      {!isRaised && <p>{t.noAlert}</p>}
      <ul class="ticker">
        {alerts.slice(0, kAlertsShown).map(({ name, isByHand, since, until }, i) => (
          <li key={i} class={until ? '' : 'raised'}>
            <time>{momentOf(since, now, 'short')}</time>{' '}
            {t.alert(texts.advanced.alert[name], isByHand, until && until.getTime() - since.getTime())}
          </li>
        ))}
      </ul>
      {alerts.length > kAlertsShown && <p class="help">{t.moreAlerts(alerts.length - kAlertsShown)}</p>}
    </section>
  );
}

function Passages() {
  const { passages, cameIn, wentOut, since, perEntrance, connection } = usePulse();
  const { loaded } = useSettings();
  const { counts, trouble } = useToday();
  const now = new Date();
  const todays = (entrance: number) => counts && (counts.get(entrance) ?? { cameIn: 0, wentOut: 0 });
  const shown = perEntrance.filter(
    ({ entrance, cameIn, wentOut }) =>
      loaded?.get(`Entrance${entrance}_Active`) !== '0' || cameIn + wentOut > 0 || counts?.has(entrance),
  );
  const said = ofToday(counts !== null, trouble, connection);
  return (
    <section class="card passages">
      <h2>{t.passages}</h2>
      <dl aria-label={t.since}>
        <Figure label={t.cameIn} value={cameIn} testid="came-in" />
        <Figure label={t.wentOut} value={wentOut} testid="went-out" />
      </dl>
      <p class="help">{t.since}</p>
      <ul class="ticker" aria-label={t.passages}>
        {passages.length === 0 && <li class="muted">{t.noPassage}</li>}
        {passages.map((passage) => (
          <li key={passage.number}>
            {passage.time && <time>{momentOf(passage.time, now, 'medium')}</time>}{' '}
            {t.passage(passage.by, passage.objectClass)} {t.entranceHere(passage.entrance)}
          </li>
        ))}
      </ul>
      <h3>{t.perEntrance}</h3>
      <table>
        <thead>
          <tr>
            <td />
            <th scope="colgroup" colSpan={2}>
              {t.sinceTime(momentOf(since, now, 'short'))}
            </th>
            <th scope="colgroup" colSpan={2}>
              {t.today}
            </th>
          </tr>
          <tr>
            <th scope="col">{t.perEntranceAll}</th>
            {[0, 1].flatMap((i) =>
              [t.cameIn, t.wentOut].map((name) => (
                <th key={`${i}${name}`} scope="col" class="number">
                  {name}
                </th>
              )),
            )}
          </tr>
        </thead>
        <tbody>
          {shown.map((sum) => (
            <tr key={sum.entrance}>
              <th scope="row">{t.entrance(sum.entrance)}</th>
              <td class="number">{sum.cameIn}</td>
              <td class="number">{sum.wentOut}</td>
              <td class="number">{number(todays(sum.entrance)?.cameIn ?? null)}</td>
              <td class="number">{number(todays(sum.entrance)?.wentOut ?? null)}</td>
            </tr>
          ))}
        </tbody>
      </table>
      {said && (
        <p class="muted" role="status">
          {said}
        </p>
      )}
      <p class="help">{t.perEntranceNote}</p>
    </section>
  );
}

/** A leader asks every three seconds: what is younger than two rounds is as new as can be. */
const kNewSeconds = 6;

/** How old the counts of a camera are, 0 for this one, which counts itself. */
export function ageOf(index: number): string {
  if (pulse.connection !== 'ok') return texts.unknown;
  const seconds = index === 0 ? 0 : (pulse.ages[index - 1] ?? null);
  if (seconds === null) return t.never;
  return seconds < kNewSeconds ? t.justNow : t.secondsAgo(seconds);
}

/** Whether the crowd of a camera is one that it has told. */
function isCounted({ index, status }: PanelCamera): boolean {
  return answers(status) && (index === 0 || (pulse.ages[index - 1] ?? null) !== null);
}

function Cameras() {
  const { panel } = usePulse();
  const cameras = panel?.cameras.filter((camera) => camera.index === 0 || camera.active) ?? [];
  return (
    <section class="card cameras">
      <h2>{t.cameras}</h2>
      <div class="scroll" tabIndex={0} role="region" aria-label={t.cameras}>
        <table data-testid="cameras">
          <thead>
            <tr>
              <th scope="col">{t.camera}</th>
              <th scope="col">{t.status}</th>
              <th scope="col" class="number">
                {t.inAreas}
              </th>
              <th scope="col" class="number">
                {t.age}
              </th>
            </tr>
          </thead>
          <tbody>
            {cameras.map((camera) => (
              <tr key={camera.index}>
                <th scope="row">
                  {camera.name || (camera.index === 0 ? texts.thisCamera : texts.follower(camera.index))}
                </th>
                <td>
                  <CameraStatus camera={camera} />
                </td>
                <td class="number">{number(isCounted(camera) ? camera.crowd : null)}</td>
                <td class="number">{ageOf(camera.index)}</td>
              </tr>
            ))}
          </tbody>
        </table>
      </div>
      {cameras.length === 1 && <p class="help">{t.noFollowers}</p>}
    </section>
  );
}

function Resets() {
  const [question, setQuestion] = useState<Question | null>(null);
  const [said, act] = useDeed();
  const resets = [
    { action: 'reset_occupancy', button: t.resetHere, ask: t.resetHereAsk },
    { action: 'reset_total_occupancy', button: t.resetBuilding, ask: t.resetBuildingAsk },
  ];
  return (
    <section class="card resets">
      <h2>{t.reset}</h2>
      <div class="actions">
        {resets.map((reset) => (
          <button
            key={reset.action}
            type="button"
            onClick={() =>
              setQuestion({
                title: reset.ask,
                text: t.resetWarning,
                yes: reset.button,
                then: () => void act(reset.action, t.resetDone),
              })
            }
          >
            {reset.button}
          </button>
        ))}
      </div>
      <p role="status" data-testid="reset-said">
        {said}
      </p>
      {question && <Confirm question={question} onClose={() => setQuestion(null)} />}
    </section>
  );
}
