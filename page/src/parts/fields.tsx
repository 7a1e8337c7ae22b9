/* Controls that each show one setting and change it as it is typed. Label, help, range and unit are those of the setting. */

import { ComponentChildren } from 'preact';
import { useId, useState } from 'preact/hooks';
import { helpOf, labelOf, plain } from '../model/fields';
import { shownParameter } from '../model/parameters';
import { useSettings } from '../stores';
import { texts } from '../texts';

/** The setting's value, its problem, and how to change it. */
function useSetting(tag: string) {
  const settings = useSettings();
  return {
    value: settings.values.get(tag) ?? '',
    problem: settings.problems.get(tag),
    loaded: settings.loaded?.get(tag) ?? '',
    changed: settings.edits.has(tag),
    set: (value: string) => settings.change([[tag, value]], tag),
  };
}

interface FrameProps {
  id: string;
  tag: string;
  problem?: string;
  changed: boolean;
  /** In place of the setting's own help. */
  help?: string;
  children: ComponentChildren;
}

export function Frame({ id, tag, problem, changed, help = helpOf(tag), children }: FrameProps) {
  return (
    <div class={`field ${changed ? 'changed' : ''}`}>
      <label for={id}>{labelOf(tag)}</label>
      <div class="control">{children}</div>
      {help && (
        <p class="help" id={`${id}-help`}>
          {help}
        </p>
      )}
      <p class="problem" id={`${id}-problem`} aria-live="polite">
        {problem}
      </p>
    </div>
  );
}

export const described = (id: string) => `${id}-help ${id}-problem`;

export function TextSetting({ tag, type = 'text' }: { tag: string; type?: string }) {
  const id = useId();
  const { value, problem, changed, set } = useSetting(tag);
  return (
    <Frame {...{ id, tag, problem, changed }}>
      <input
        id={id}
        name={tag}
        type={type}
        value={value}
        autocomplete="off"
        spellcheck={false}
        aria-invalid={!!problem}
        aria-describedby={described(id)}
        onInput={(event) => set(event.currentTarget.value)}
      />
    </Frame>
  );
}

/** step: of a slider beside the number. */
export function NumberSetting({ tag, step }: { tag: string; step?: number }) {
  const id = useId();
  const { value, loaded, problem, changed, set } = useSetting(tag);
  const parameter = shownParameter(tag);
  const [least, most] = parameter.range!;
  const unit = texts.fields.units[parameter.unit] ?? '';
  const [typed, setTyped] = useState<string | null>(null);
  const meant = (text: string) => {
    const number = text.trim().replace(/^(\d+),(\d+)$/, '$1.$2');
    return number === plain(loaded) ? loaded : number;
  };
  const take = (event: { currentTarget: HTMLInputElement }) => {
    setTyped(event.currentTarget.value);
    set(meant(event.currentTarget.value));
  };
  // What was typed stays as it was typed, as long as it is what the setting has.
  const shown = typed !== null && meant(typed) === value ? typed : changed ? value : plain(value);
  return (
    <Frame {...{ id, tag, problem, changed }} help={`${helpOf(tag)} ${texts.settings.usual(parameter.default)}`}>
      {step !== undefined && (
        <input type="range" aria-label={labelOf(tag)} min={least} max={most} step={step} value={value} onInput={take} />
      )}
      <input
        id={id}
        name={tag}
        type="text"
        inputMode="decimal"
        class="number"
        value={shown}
        autocomplete="off"
        aria-invalid={!!problem}
        aria-describedby={described(id)}
        onInput={take}
      />
      {unit && <span class="unit">{unit}</span>}
    </Frame>
  );
}

/** name: for screen readers, where the label is short. plain: without a help of its own, as one of many. */
export function SwitchSetting({ tag, name, plain = false }: { tag: string; name?: string; plain?: boolean }) {
  const id = useId();
  const { value, changed, set } = useSetting(tag);
  return (
    <div class={`field switch ${changed ? 'changed' : ''}`}>
      <label title={plain ? helpOf(tag) : undefined}>
        <input
          type="checkbox"
          name={tag}
          checked={value === '1'}
          aria-label={name}
          aria-describedby={plain ? undefined : `${id}-help`}
          onChange={(event) => set(event.currentTarget.checked ? '1' : '0')}
        />
        <span>{labelOf(tag)}</span>
      </label>
      {!plain && (
        <p class="help" id={`${id}-help`}>
          {helpOf(tag)}
        </p>
      )}
    </div>
  );
}

/** helps: one for each choice. */
export function ChoiceSetting({ tag, helps }: { tag: keyof typeof texts.fields.choices; helps: string[] }) {
  const id = useId();
  const { value, changed, set } = useSetting(tag);
  return (
    <fieldset class={`field ${changed ? 'changed' : ''}`}>
      <legend>{labelOf(tag)}</legend>
      <p class="help">{helpOf(tag)}</p>
      {texts.fields.choices[tag].map((label, i) => (
        <div class="choice" key={label}>
          <label>
            <input
              type="radio"
              name={tag}
              value={i}
              checked={value === String(i)}
              aria-describedby={`${id}-${i}`}
              onChange={() => set(String(i))}
            />
            <span>{label}</span>
          </label>
          <p class="help" id={`${id}-${i}`}>
            {helps[i]}
          </p>
        </div>
      ))}
    </fieldset>
  );
}

/** choices: value and text of each. warning: what is wrong with the choice, though it can be saved. */
export function SelectSetting({
  tag,
  choices,
  warning,
}: {
  tag: string;
  choices: [string, string][];
  warning?: string;
}) {
  const id = useId();
  const { value, changed, set } = useSetting(tag);
  const known = choices.some(([one]) => one === value);
  return (
    <Frame {...{ id, tag, changed }}>
      <select
        id={id}
        name={tag}
        value={value}
        aria-describedby={`${described(id)} ${id}-warning`}
        onChange={(event) => set(event.currentTarget.value)}
      >
        {!known && <option value={value}>{value}</option>}
        {choices.map(([one, text]) => (
          <option key={one} value={one}>
            {text}
          </option>
        ))}
      </select>
      <span id={`${id}-warning`} class="warning" role="status">
        {warning}
      </span>
    </Frame>
  );
}
