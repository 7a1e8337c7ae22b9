import { ComponentChildren } from 'preact';
import { useLayoutEffect, useRef } from 'preact/hooks';
import { isCoordinate, nameOf, tabOf, valueOf } from '../model/fields';
import { SettingsStore } from '../model/settings_store';
import { tabNames } from '../model/tabs';
import { settings, useSettings } from '../stores';
import { texts } from '../texts';
import { Dialog } from './dialog';

/**
 * What a tab with settings has around them: the words while there are none yet, and the bar that saves them.
 * warning: what is wrong with what was changed, though it can be saved.
 */
export function SettingsFrame({ children, warning = '' }: { children: () => ComponentChildren; warning?: string }) {
  const { loaded, trouble } = useSettings();
  if (!loaded) {
    return (
      <div class="card" role="status">
        <p>{trouble ? texts.settings.failed + texts.trouble[trouble] : texts.settings.loading}</p>
        {trouble && <button type="button" onClick={() => settings.load()}>{texts.settings.again}</button>}
      </div>
    );
  }
  return (
    <form autocomplete="off" onSubmit={(event) => { event.preventDefault(); if (canSave(settings)) void settings.submit(); }}>
      {children()}
      <SaveBar warning={warning} />
    </form>
  );
}

function canSave({ edits, problems, save }: SettingsStore): boolean {
  return edits.size > 0 && problems.size === 0 && save.is !== 'saving';
}

function SaveBar({ warning }: { warning: string }) {
  const store = useSettings();
  const { edits, problems, save, canUndo } = store;
  const bar = useRef<HTMLDivElement>(null);
  const said = useRef<HTMLParagraphElement>(null);
  const words = sentence(store);
  const hadFocus = bar.current?.contains(document.activeElement);
  useLayoutEffect(() => {
    // The buttons go when there is nothing left to save: what was said of it is next.
    if (hadFocus && !bar.current!.contains(document.activeElement) && document.activeElement === document.body) said.current!.focus({ preventScroll: true });
  });
  return (
    <div ref={bar} class={`save-bar ${edits.size > 0 || words ? 'shown' : ''}`}>
      <p ref={said} tabIndex={-1} class={save.is === 'failed' || problems.size > 0 ? 'problem' : ''} role={save.is === 'failed' ? 'alert' : 'status'} data-testid="save-state">
        {words}
      </p>
      {warning && <p class="warning" data-testid="save-warning">{warning}</p>}
      {(edits.size > 0 || canUndo) && (
        <div class="actions">
          <button type="button" disabled={!canUndo} onClick={() => store.undo()}>{texts.settings.undo}</button>
          <button type="button" disabled={edits.size === 0} onClick={() => store.discard()}>{texts.settings.discard}</button>
          {/* While it saves it keeps the focus, and does nothing. */}
          <button type="submit" class="primary" disabled={edits.size === 0 || problems.size > 0} aria-disabled={save.is === 'saving'}>{texts.settings.save}</button>
        </div>
      )}
      {save.is === 'conflict' && <Conflict theirs={save.theirs} />}
    </div>
  );
}

/** The name of the first setting, and what is wrong with it: the bar may lie over where that is said. */
function firstOf(problems: ReadonlyMap<string, string>): [string, string] {
  const [[tag, problem]] = problems;
  return [nameOf(tag), problem];
}

function sentence({ edits, problems, save }: SettingsStore): string {
  if (save.is === 'saving') return texts.settings.saving;
  if (save.is === 'failed') {
    const reasons: Record<number, string> = { 500: texts.settings.refusedValue, 400: texts.settings.refusedDocument };
    return texts.settings.notSaved + (reasons[save.status] ?? texts.trouble[save.trouble]) + texts.settings.kept;
  }
  const saved = save.is === 'saved' ? [texts.settings.saved] : [];
  if (edits.size === 0) return saved.join('');
  const tabs = new Set([...edits.keys()].map(tabOf));
  const changes = texts.settings.unsaved(edits.size, tabNames.filter((tab) => tabs.has(tab)).map((tab) => texts.tabs[tab]));
  return [...saved, problems.size > 0 ? `${changes}, ${texts.settings.invalid(problems.size, ...firstOf(problems))}` : changes].join(' ');
}

const kMostShown = 12;

/** What somebody else has changed: a line for each setting, and one for each area that was drawn anew. */
function changesOf(store: SettingsStore, theirs: string[], latest: ReadonlyMap<string, string>) {
  const mine = store.mineOver(latest);
  const lines = new Map<string, { said: string; both: boolean }>();
  for (const tag of theirs) {
    const [now, before] = [latest.get(tag) ?? '', store.loaded!.get(tag) ?? ''].map((value) => valueOf(tag, value));
    const said = tag.endsWith('_Pwd') ? texts.settings.conflictHidden : isCoordinate(tag) ? texts.settings.conflictDrawn : texts.settings.conflictLine(now, before);
    const name = nameOf(tag);
    lines.set(name, { said, both: mine.has(tag) || (lines.get(name)?.both ?? false) });
  }
  return [...lines];
}

function Conflict({ theirs }: { theirs: string[] }) {
  const store = useSettings();
  if (store.save.is !== 'conflict') return null;
  const changes = changesOf(store, theirs, store.save.latest);
  return (
    <Dialog title={texts.settings.conflict} onClose={() => store.dismissConflict()}>
      <p>{texts.settings.conflictText}</p>
      <ul class="changes">
        {changes.slice(0, kMostShown).map(([name, { said, both }]) => (
          <li key={name}>
            <strong>{name}</strong> {said}
            {both && <em> – {texts.settings.conflictBoth}</em>}
          </li>
        ))}
        {changes.length > kMostShown && <li>{texts.settings.more(changes.length - kMostShown)}</li>}
      </ul>
      <p>
        <strong>{texts.settings.conflictMine}</strong> {texts.settings.conflictMineHelp}{' '}
        <strong>{texts.settings.conflictTheirs}</strong> {texts.settings.conflictTheirsHelp}
      </p>
      <div class="actions">
        <button type="button" onClick={() => store.dismissConflict()}>{texts.dialog.cancel}</button>
        <button type="button" onClick={() => store.takeTheirs()}>{texts.settings.conflictTheirs}</button>
        <button type="button" class="primary" onClick={() => store.saveMine()}>{texts.settings.conflictMine}</button>
      </div>
    </Dialog>
  );
}
