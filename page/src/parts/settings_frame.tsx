import { ComponentChildren } from 'preact';
import { useRef } from 'preact/hooks';
import { byName, isCoordinate, nameOf, tabOf, valueOf } from '../model/fields';
import { SettingsStore } from '../model/settings_store';
import { tabNames } from '../model/tabs';
import { settings, useSettings } from '../stores';
import { texts } from '../texts';
import { Dialog } from './dialog';
import { useFocusKept } from './focus';

/**
 * What a tab with settings has around them: the words while there are none yet, and the bar that saves them.
 * warning: what is wrong with what was changed, though it can be saved.
 */
export function SettingsFrame({ children, warning = '' }: { children: () => ComponentChildren; warning?: string }) {
  const { loaded, trouble } = useSettings();
  const words = useRef<HTMLDivElement>(null);
  // "Try again" goes, for what it asked for.
  useFocusKept(words, () => null);
  if (!loaded) {
    return (
      <div ref={words} class="card" role="status">
        <p>{trouble ? texts.settings.failed + texts.trouble[trouble] : texts.settings.loading}</p>
        {trouble && (
          <button type="button" onClick={() => settings.load()}>
            {texts.settings.again}
          </button>
        )}
      </div>
    );
  }
  return (
    <form
      autocomplete="off"
      onSubmit={(event) => {
        event.preventDefault();
        if (canSave(settings)) void settings.submit();
      }}
    >
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
  const isBad = save.is === 'failed' || save.is === 'altered';
  // The buttons go when there is nothing left to save: what is said of it is next.
  useFocusKept(bar, () => said.current);
  return (
    <div ref={bar} class={`save-bar ${edits.size > 0 || words ? 'shown' : ''}`}>
      <p
        ref={said}
        tabIndex={-1}
        class={isBad || problems.size > 0 ? 'problem' : ''}
        role={isBad ? 'alert' : 'status'}
        data-testid="save-state"
      >
        {words}
      </p>
      {warning && (
        <p class="warning" data-testid="save-warning">
          {warning}
        </p>
      )}
      {(edits.size > 0 || canUndo) && (
        <div class="actions">
          {canUndo && (
            <button type="button" onClick={() => store.undo()}>
              {texts.settings.undo}
            </button>
          )}
          {edits.size > 0 && (
            <>
              <button type="button" onClick={() => store.discard()}>
                {texts.settings.discard}
              </button>
              {/* While it saves it keeps the focus, and does nothing. */}
              <button type="submit" class="primary" disabled={problems.size > 0} aria-disabled={save.is === 'saving'}>
                {texts.settings.save}
              </button>
            </>
          )}
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
  const said = outcomeOf(save);
  if (edits.size === 0) return said;
  const tabs = new Set([...edits.keys()].map(tabOf));
  const changes = texts.settings.unsaved(
    byName(edits.keys()).size,
    tabNames.filter((tab) => tabs.has(tab)).map((tab) => texts.tabs[tab]),
  );
  return `${said} ${problems.size > 0 ? `${changes}, ${texts.settings.invalid(problems.size, ...firstOf(problems))}` : changes}`.trim();
}

const kMostNamed = 4;

/** What has become of the changes that are gone. */
function outcomeOf(save: SettingsStore['save']): string {
  if (save.is === 'saved') return texts.settings.saved;
  if (save.is === 'discarded') return texts.settings.discarded;
  if (save.is !== 'altered') return '';
  const names = [...byName(save.tags).keys()];
  return texts.settings.altered(
    names.length > kMostNamed
      ? [...names.slice(0, kMostNamed - 1), texts.settings.others(names.length - kMostNamed + 1)]
      : names,
  );
}

const kMostShown = 12;

/** What somebody else has changed: a line for each setting, and one for each area that was drawn anew. */
function changesOf(store: SettingsStore, theirs: string[], latest: ReadonlyMap<string, string>) {
  const mine = store.mineOver(latest);
  return [...byName(theirs)].map(([name, tags]) => {
    const [tag] = tags;
    const [now, before] = [latest.get(tag) ?? '', store.loaded!.get(tag) ?? ''].map((value) => valueOf(tag, value));
    const said = tag.endsWith('_Pwd')
      ? texts.settings.conflictHidden
      : isCoordinate(tag)
        ? texts.settings.conflictDrawn
        : texts.settings.conflictLine(now, before);
    return { name, said, both: tags.some((one) => mine.has(one)) };
  });
}

function Conflict({ theirs }: { theirs: string[] }) {
  const store = useSettings();
  if (store.save.is !== 'conflict') return null;
  const changes = changesOf(store, theirs, store.save.latest);
  return (
    <Dialog title={texts.settings.conflict} onClose={() => store.dismissConflict()}>
      <p>{texts.settings.conflictText}</p>
      <ul class="changes">
        {changes.slice(0, kMostShown).map(({ name, said, both }) => (
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
        <button type="button" onClick={() => store.dismissConflict()}>
          {texts.dialog.cancel}
        </button>
        <button type="button" onClick={() => store.takeTheirs()}>
          {texts.settings.conflictTheirs}
        </button>
        <button type="button" class="primary" onClick={() => store.saveMine()}>
          {texts.settings.conflictMine}
        </button>
      </div>
    </Dialog>
  );
}
