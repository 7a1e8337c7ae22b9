import { ComponentChildren } from 'preact';
import { SettingsStore } from '../model/settings_store';
import { settings, useSettings } from '../stores';
import { texts } from '../texts/en';
import { Dialog } from './dialog';

/** What a tab with settings has around them: the words while there are none yet, and the bar that saves them. */
export function SettingsFrame({ children }: { children: () => ComponentChildren }) {
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
      <SaveBar />
    </form>
  );
}

function canSave({ edits, problems, save }: SettingsStore): boolean {
  return edits.size > 0 && problems.size === 0 && save.is !== 'saving';
}

function SaveBar() {
  const store = useSettings();
  const { edits, problems, save, canUndo } = store;
  const words = sentence(store);
  return (
    <div class={`save-bar ${edits.size > 0 || words ? 'shown' : ''}`}>
      <p class={save.is === 'failed' || problems.size > 0 ? 'problem' : ''} role={save.is === 'failed' ? 'alert' : 'status'} data-testid="save-state">
        {words}
      </p>
      {(edits.size > 0 || canUndo) && (
        <div class="actions">
          <button type="button" disabled={!canUndo} onClick={() => store.undo()}>{texts.settings.undo}</button>
          <button type="button" disabled={edits.size === 0} onClick={() => store.discard()}>{texts.settings.discard}</button>
          <button type="submit" class="primary" disabled={!canSave(store)}>{texts.settings.save}</button>
        </div>
      )}
      {save.is === 'conflict' && <Conflict theirs={save.theirs} />}
    </div>
  );
}

function sentence({ edits, problems, save }: SettingsStore): string {
  if (save.is === 'saving') return texts.settings.saving;
  if (save.is === 'saved') return texts.settings.saved;
  if (save.is === 'failed') {
    const reasons: Record<number, string> = { 500: texts.settings.refusedValue, 400: texts.settings.refusedDocument };
    return texts.settings.notSaved + (reasons[save.status] ?? texts.trouble[save.trouble]) + texts.settings.kept;
  }
  if (edits.size === 0) return '';
  const changes = texts.settings.unsaved(edits.size);
  return problems.size > 0 ? `${changes}, ${texts.settings.invalid(problems.size)}` : changes;
}

const kMostShown = 12;

function Conflict({ theirs }: { theirs: string[] }) {
  const store = useSettings();
  if (store.save.is !== 'conflict') return null;
  const latest = store.save.latest;
  const line = (tag: string) =>
    tag.endsWith('_Pwd')
      ? texts.settings.conflictHidden
      : texts.settings.conflictLine(latest.get(tag) ?? '', store.loaded!.get(tag) ?? '');
  return (
    <Dialog title={texts.settings.conflict} onClose={() => store.dismissConflict()}>
      <p>{texts.settings.conflictText}</p>
      <ul class="changes">
        {theirs.slice(0, kMostShown).map((tag) => (
          <li key={tag}>
            <strong>{tag}</strong> {line(tag)}
            {store.edits.has(tag) && <em> – {texts.settings.conflictBoth}</em>}
          </li>
        ))}
        {theirs.length > kMostShown && <li>{texts.settings.more(theirs.length - kMostShown)}</li>}
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
