import { useState } from 'preact/hooks';
import { helpOf } from '../model/fields';
import {
  crossesItself,
  leastCorner,
  leavesPicture,
  longestEdge,
  narrowestPassage,
  narrowness,
  Point,
  stepPerCycle,
  withCornerAfter,
  withoutCorner,
} from '../model/geometry';
import { kCycle } from '../model/parameters';
import {
  AreaKind,
  areaKinds,
  cornersTag,
  kAreas,
  kLeastCorners,
  kMostCorners,
  polygonChanges,
} from '../model/settings';
import { SettingsStore } from '../model/settings_store';
import { AreaEditor, Selected } from '../parts/area_editor';
import { Confirm, Question } from '../parts/dialog';
import { ChoiceSetting, NumberSetting, SwitchSetting } from '../parts/fields';
import { SettingsFrame } from '../parts/settings_frame';
import { settings, usePulse, useRecount, useSettings } from '../stores';
import { texts } from '../texts';

const t = texts.areas;
const areaNumbers = Array.from({ length: kAreas }, (_, i) => i + 1);

export const activeTag = (kind: AreaKind, number: number) => `${kind}${number}_Active`;

/** Whether something of an area is not saved yet. */
function isChanged({ edits }: SettingsStore, kind: AreaKind, number: number): boolean {
  return [...edits.keys()].some((tag) => tag.startsWith(`${kind}${number}`));
}

/** The first warning of an area that was changed, for the bar that may lie over those of the area. */
function firstWarning(store: SettingsStore, warningsOf: Warnings): string {
  for (const kind of areaKinds) {
    for (const number of areaNumbers) {
      const warning = isChanged(store, kind, number) && warningsOf(kind, number)[0];
      if (warning) return `${t.name[kind](number)}: ${warning}`;
    }
  }
  return '';
}

export function AreasTab() {
  const [selected, setSelected] = useState<Selected>({ kind: 'Detection', number: 1, corner: null });
  const [question, setQuestion] = useState<Question | null>(null);
  const store = useSettings();
  const warningsOf = useWarnings();
  /** Asks first where other areas lose a corner, too. */
  const remove = ({ kind, number, corner }: Selected) => {
    if (!canRemove(kind, number)) return;
    const then = () => {
      removeCorner(kind, number, corner);
      setSelected({ kind, number, corner: null });
    };
    const name = t.name[kind];
    const others = cutWith(kind, number).map(name);
    if (others.length === 0) then();
    else setQuestion({ title: t.removeAsk(name(number)), text: t.removeAlso(others), yes: t.removeCorner, then });
  };
  // The corner may be gone: taken back, or drawn otherwise by somebody else.
  const { kind, number, corner } = selected;
  if (corner !== null && corner >= store.polygon(kind, number).length) setSelected({ kind, number, corner: null });
  return (
    <SettingsFrame warning={store.loaded ? firstWarning(store, warningsOf) : ''}>
      {() => (
        <div class="areas">
          <section class="card picture-card">
            <AreaEditor selected={selected} onSelect={setSelected} onAdd={addCorner} onRemove={remove} />
            {kind === 'Entrance' && <Recounted number={number} />}
            <p class="help" id="areas-help">
              {t.intro} <span class="keys">{t.keys}</span>
            </p>
          </section>
          <div class="side column">
            <section class="card">
              <AreaList selected={selected} onSelect={setSelected} />
            </section>
            <section class="card">
              <AreaDetails selected={selected} onRemove={remove} />
            </section>
          </div>
          <section class="card">
            <ChoiceSetting tag="IsCameraInside" helps={[t.outsideHelp, t.insideHelp]} />
          </section>
          <section class="card">
            <div class="with-sample">
              <ChoiceSetting tag="LocatorAtBottom" helps={[t.locatorCentreHelp, t.locatorBottomHelp]} />
              <LocatorSample />
            </div>
          </section>
          <section class="card">
            <h2>{t.advice}</h2>
            <ul class="help">
              {t.advices.map((advice) => (
                <li key={advice}>{advice}</li>
              ))}
            </ul>
          </section>
          {question && <Confirm question={question} onClose={() => setQuestion(null)} />}
        </div>
      )}
    </SettingsFrame>
  );
}

/** All areas of a kind have the same number of corners: what one gets or loses, the others do where it shows least. */
function changeCorners(kind: AreaKind, changed: number, polygon: Point[], other: (polygon: Point[]) => Point[]): void {
  const tag = cornersTag[kind];
  const { loaded, size } = settings;
  if (!tag || !loaded) return;
  const changes = areaNumbers.flatMap((number) =>
    polygonChanges(loaded, kind, number, number === changed ? polygon : other(settings.polygon(kind, number)), size),
  );
  settings.change([[tag, String(polygon.length)], ...changes]);
}

/** Adds a corner after one, or into the longest edge; false when there are as many as can be. */
function addCorner(kind: AreaKind, number: number, after: number | null): boolean {
  const polygon = settings.polygon(kind, number);
  if (!cornersTag[kind] || polygon.length >= kMostCorners) return false;
  changeCorners(kind, number, withCornerAfter(polygon, after ?? longestEdge(polygon)), (other) =>
    withCornerAfter(other, longestEdge(other)),
  );
  return true;
}

const canRemove = (kind: AreaKind, number: number) =>
  cornersTag[kind] !== null && settings.polygon(kind, number).length > kLeastCorners;

/** The areas that are in use and lose a corner with this one. */
const cutWith = (kind: AreaKind, number: number) =>
  areaNumbers.filter((other) => other !== number && settings.values.get(activeTag(kind, other)) === '1');

function removeCorner(kind: AreaKind, number: number, corner: number | null): void {
  const polygon = settings.polygon(kind, number);
  changeCorners(kind, number, withoutCorner(polygon, corner ?? leastCorner(polygon)), (other) =>
    withoutCorner(other, leastCorner(other)),
  );
}

function AreaList({ selected, onSelect }: { selected: Selected; onSelect: (selected: Selected) => void }) {
  const store = useSettings();
  const warningsOf = useWarnings();
  return (
    <>
      {areaKinds.map((kind) => (
        <div key={kind} role="group" aria-label={t.kind[kind]} class={`area-group ${kind}`}>
          <h2>
            <span class="swatch" aria-hidden="true" />
            {t.kind[kind]}
          </h2>
          <div class="segments">
            {areaNumbers.map((number) => {
              const active = store.values.get(activeTag(kind, number)) === '1';
              const chosen = selected.kind === kind && selected.number === number;
              const warned = active && warningsOf(kind, number).length > 0;
              const changed = isChanged(store, kind, number);
              const name = [
                t.name[kind](number),
                ...(active ? [] : [t.off]),
                ...(changed ? [texts.tabs.unsaved] : []),
                ...(warned ? [t.warned] : []),
              ].join(', ');
              return (
                <button
                  key={number}
                  type="button"
                  aria-pressed={chosen}
                  aria-label={name}
                  title={warned || changed ? name : undefined}
                  class={active ? '' : 'off'}
                  onClick={() => onSelect({ kind, number, corner: null })}
                >
                  {number}
                  {!active && <span class="muted"> {t.off}</span>}
                  {changed && <span class="unsaved"> •</span>}
                  {warned && <span class="warned"> !</span>}
                </button>
              );
            })}
          </div>
        </div>
      ))}
    </>
  );
}

function AreaDetails({ selected, onRemove }: { selected: Selected; onRemove: (selected: Selected) => void }) {
  const store = useSettings();
  const { kind, number, corner } = selected;
  const name = t.name[kind](number);
  const corners = store.polygon(kind, number).length;
  const warnings = useWarnings()(kind, number);
  return (
    <div data-testid="area-details">
      <h2>{name}</h2>
      <SwitchSetting key={activeTag(kind, number)} tag={activeTag(kind, number)} name={t.activeNamed(name)} />
      {kind === 'Detection' && <NumberSetting key={number} tag={`Detection${number}ThreshSeconds`} />}
      {!cornersTag[kind] && <p class="help">{t.fourCorners}</p>}
      {cornersTag[kind] && (
        <div class="field">
          <span>{t.corners(corners)}</span>
          <div class="actions">
            <button
              type="button"
              aria-disabled={corners >= kMostCorners}
              onClick={() => addCorner(kind, number, corner)}
            >
              {t.addCorner}
            </button>
            <button
              type="button"
              aria-disabled={corners <= kLeastCorners}
              title={t.removesElsewhere}
              onClick={() => onRemove(selected)}
            >
              {t.removeCorner}
            </button>
          </div>
          <p class="help">
            {helpOf(cornersTag[kind])} {t.removesElsewhere}
          </p>
        </div>
      )}
      <div role="status">
        <ul class="warnings" data-testid="warnings">
          {warnings.map((warning) => (
            <li key={warning}>{warning}</li>
          ))}
        </ul>
      </div>
    </div>
  );
}

/** What an entrance would have counted as it is drawn now, beside what it has. */
function Recounted({ number }: { number: number }) {
  const store = useRecount();
  if (!store) return null;
  const { result, trouble, isAsking } = store;
  const none = { cameIn: 0, wentOut: 0 };
  const words = !result
    ? trouble
      ? t.recountFailed + texts.trouble[trouble.trouble]
      : t.recountAsked
    : result.drawn.size + result.recorded.size === 0
      ? t.recountNothing
      : t.recounted(
          t.name.Entrance(number),
          result.isYesterday,
          result.drawn.get(number) ?? none,
          result.recorded.get(number) ?? none,
        );
  return (
    <p class="recount" data-testid="recount" aria-busy={isAsking}>
      {words}
      {result && result.withoutWay > 0 && <> {t.withoutWay(result.withoutWay)}</>}
      {result && isAsking && <span class="muted"> …</span>}
    </p>
  );
}

type Warnings = (kind: AreaKind, number: number) => string[];

/** What is wrong with an area, though it can be saved. That depends on how long the camera takes from look to look. */
function useWarnings(): Warnings {
  const store = useSettings();
  const { cycleTime } = usePulse();
  const { size } = store;
  const step = stepPerCycle(size, Math.max(kCycle, cycleTime ?? 0));
  return (kind, number) => {
    const polygon = store.polygon(kind, number);
    const warnings = [];
    if (crossesItself(polygon)) warnings.push(t.warnings.crossing);
    if (leavesPicture(polygon, size)) warnings.push(t.warnings.leaving);
    const narrowest = narrowestPassage(polygon, step / 2);
    if (kind !== 'Exclusion' && narrowest < step) warnings.push(t.warnings.small(...narrowness(narrowest, step, size)));
    return warnings;
  };
}

function LocatorSample() {
  const atBottom = useSettings().values.get('LocatorAtBottom') === '1';
  const y = atBottom ? 92 : 52;
  return (
    <svg
      class="sample"
      viewBox="0 0 64 104"
      role="img"
      aria-label={`${t.sample}: ${texts.fields.choices.LocatorAtBottom[Number(atBottom)]}`}
    >
      <rect x="12" y="12" width="40" height="80" rx="2" class="box" />
      <path
        class="body"
        d="M32 20a7 7 0 110 14 7 7 0 010-14zM20 62c0-14 4-24 12-24s12 10 12 24zM24 62h16l-2 28h-5l-1-18-1 18h-5z"
      />
      <path class="cross" d={`M24 ${y}h16M32 ${y - 8}v16`} />
    </svg>
  );
}
